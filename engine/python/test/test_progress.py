import threading
from decimal import Decimal
from fractions import Fraction

import pytest
from yvm import _progress


class Clock:
    def __init__(self):
        self.now = 100.0

    def monotonic(self):
        return self.now


@pytest.fixture
def clock(monkeypatch, native):
    native.progress_wanted = True
    clock = Clock()
    monkeypatch.setattr(_progress, "time", clock)
    return clock


def told(native):
    """What was told, without the identifiers of the bars."""
    return [event[1:] for event in native.told_progress]


def test_a_loop_is_told_at_its_begin_and_its_end(clock, native):
    assert list(_progress.progress("ab", "letters")) == ["a", "b"]
    assert told(native) == [
        ("letters", 0.0, 2.0, None, None, False),
        ("letters", 2.0, 2.0, None, 0.0, True),
    ]
    assert native.told_progress[0][0] == native.told_progress[1][0]


def test_rate_and_remaining_time_are_told_twenty_times_a_second(clock, native):
    for _ in _progress.progress(range(100)):
        clock.now += 0.01
    events = told(native)
    assert len(events) == 2 + 100 // 5
    label, done, total, rate, remaining, finished = events[10]
    assert (label, total, finished) == ("", 100.0, False)
    assert rate == pytest.approx(100)
    assert remaining == pytest.approx((100 - done) / 100)
    assert events[-1][1:] == (100.0, 100.0, pytest.approx(100), 0.0, True)


def test_the_rate_follows_what_changes(clock, native):
    with _progress.progress(total=1000) as bar:
        for seconds in (0.1, 1.0):
            for _ in range(20):
                clock.now += seconds
                bar.update()
        rates = [event[3] for event in told(native)]
    assert rates[20] == pytest.approx(10)
    assert 1.0 < rates[24] < 5.0
    assert rates[40] == pytest.approx(1.0, rel=0.01)


def test_a_loop_that_is_left_early_is_told_as_finished(clock, native):
    for letter in _progress.progress("abc"):
        if letter == "b":
            break
    assert told(native)[-1] == ("", 1.0, 3.0, None, None, True)
    with pytest.raises(ValueError):
        for _ in _progress.progress("abc"):
            raise ValueError
    assert told(native)[-1] == ("", 0.0, 3.0, None, None, True)


def test_a_block_is_told_as_finished_however_it_ends(clock, native):
    with pytest.raises(ValueError), _progress.progress(total=4, label="block") as bar:
        clock.now += 1
        bar.update(3)
        raise ValueError
    assert told(native) == [
        ("block", 0.0, 4.0, None, None, False),
        ("block", 3.0, 4.0, 3.0, pytest.approx(1 / 3), False),
        ("block", 3.0, 4.0, 3.0, None, True),
    ]


def test_bars_within_bars_are_told_apart(clock, native):
    for _ in _progress.progress("a"):
        for _ in _progress.progress("b"):
            pass
    outer, inner, inner_end, outer_end = [event[0] for event in native.told_progress]
    assert outer == outer_end != inner == inner_end


def test_a_length_that_nobody_knows_leaves_the_remaining_time_open(clock, native):
    for _ in _progress.progress(iter("ab")):
        clock.now += 1
    assert [event[2] for event in told(native)] == [None] * 4
    assert [event[4] for event in told(native)] == [None] * 4


def test_more_than_the_total_leaves_no_time(clock, native):
    with _progress.progress(total=1) as bar:
        clock.now += 1
        bar.update(5)
    assert told(native)[1] == ("", 5.0, 1.0, 5.0, 0.0, False)


def test_who_begins_to_listen_is_told_at_the_next_move(clock, native):
    native.progress_wanted = False
    bar = _progress.progress(total=2)
    bar.update()
    native.progress_wanted = True
    clock.now += 1
    bar.update()
    assert len(told(native)) == 1


def test_a_bar_that_several_threads_move_counts_every_step(native):
    bar = _progress.progress(total=4000)
    threads = [threading.Thread(target=lambda: [bar.update() for _ in range(1000)]) for _ in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert bar.done == 4000


def test_what_makes_no_sense_is_refused():
    with pytest.raises(TypeError, match="label of a progress is a int: a str is accepted"):
        _progress.progress([], 3)
    for total in (-1, float("nan"), float("inf")):
        with pytest.raises(ValueError, match="zero, a positive number or None is accepted"):
            _progress.progress([], total=total)
    with pytest.raises(TypeError, match="without something to loop over"):
        list(_progress.progress(total=3))


def test_a_bar_that_is_begun_again_is_another(clock, native):
    bar = _progress.progress("ab")
    for _ in range(2):
        for _ in bar:
            pass
    first, first_end, second, second_end = native.told_progress
    assert first[0] == first_end[0] != second[0] == second_end[0]
    assert told(native)[:2] == told(native)[2:]
    with bar:
        pass
    assert told(native)[-1] == ("", 0.0, 2.0, None, None, True)


def test_what_is_done_behind_the_end_is_not_told(clock, native):
    with _progress.progress(total=2) as bar:
        bar.update()
    count = len(native.told_progress)
    clock.now += 1
    bar.update()
    bar.close()
    assert bar.done == 2
    assert len(native.told_progress) == count


def test_a_length_beyond_what_can_be_told_is_unknown(clock, native):
    for _ in _progress.progress(range(10**30)):
        break
    assert [event[2] for event in told(native)] == [None, None]


def test_any_kind_of_number_may_be_done(clock, native):
    with _progress.progress(total=Fraction(3, 2)) as bar:
        clock.now += 1
        bar.update(Fraction(1, 2))
    assert told(native)[1] == ("", 0.5, 1.5, 0.5, 2.0, False)
    with _progress.progress(total=Decimal(2)) as bar:
        clock.now += 1
        bar.update(Decimal(1))
    assert told(native)[4] == ("", 1.0, 2.0, 1.0, 1.0, False)


@pytest.mark.parametrize("total", [-1, float("nan"), float("inf"), "3", 1j, [], pytest.param(10**400, id="huge")])
def test_a_total_that_is_no_amount_is_refused_whenever_it_is_set(clock, native, total):
    bar = _progress.progress(total=1)
    words = f"the total of a progress is {total!r}: zero, a positive number or None is accepted"
    for set_total in (lambda: _progress.progress(total=total), lambda: setattr(bar, "total", total)):
        with pytest.raises(ValueError) as refusal:
            set_total()
        assert str(refusal.value) == words
    assert bar.total == 1


def test_a_label_that_is_no_text_is_refused_whenever_it_is_set(clock, native):
    bar = _progress.progress(label="mine")
    with pytest.raises(TypeError, match="the label of a progress is a int: a str is accepted"):
        bar.label = 5
    assert bar.label == "mine"
