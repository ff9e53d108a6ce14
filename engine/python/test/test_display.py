import builtins

import numpy
import pytest
from yvm import _display


def test_none_shows_nothing(capsys):
    _display.display_hook(None)
    assert capsys.readouterr().out == ""


def test_a_value_is_shown_and_kept_as_underscore(capsys):
    _display.display_hook([1, "a"])
    assert capsys.readouterr().out == "[1, 'a']\n"
    assert builtins._ == [1, "a"]


def test_a_value_is_written_in_one_piece(monkeypatch):
    pieces = []
    monkeypatch.setattr("sys.stdout", type("Stream", (), {"write": staticmethod(pieces.append)}))
    _display.display_hook(3)
    assert pieces == ["3\n"]


def test_arrays_take_the_width_of_the_window(capsys, native, monkeypatch):
    monkeypatch.setattr(native, "columns", 20)
    _display.display_hook(numpy.arange(6))
    assert capsys.readouterr().out == "array([0, 1, 2, 3,\n       4, 5])\n"
    assert numpy.get_printoptions()["linewidth"] == 75


def test_a_width_that_was_chosen_is_kept(capsys, native, monkeypatch):
    monkeypatch.setattr(native, "columns", 20)
    with numpy.printoptions(linewidth=40):
        _display.display_hook(numpy.arange(6))
    assert capsys.readouterr().out == "array([0, 1, 2, 3, 4, 5])\n"


def test_a_representation_that_raises_shows_nothing(capsys):
    class Broken:
        def __repr__(self):
            raise ValueError("b")

    with pytest.raises(ValueError):
        _display.display_hook(Broken())
    assert capsys.readouterr().out == ""


def test_an_unformatted_array_keeps_each_row_in_one_line(capsys, native, monkeypatch):
    monkeypatch.setattr(native, "columns", 20)
    monkeypatch.setattr(native, "formats_values", False)
    _display.display_hook(numpy.arange(60))
    assert capsys.readouterr().out.count("\n") == 1


def test_a_long_value_is_shown_page_by_page(capsys, native, monkeypatch):
    monkeypatch.setattr(native, "rows", 4)
    monkeypatch.setattr(native, "pages_values", True)
    _display.display_hook(numpy.arange(8).reshape(8, 1))
    told = capsys.readouterr().out.splitlines()
    assert told == [
        "array([[0],",
        "       [1],",
        "       [2],",
        "-- lines left: 5; yvm.more() shows the next page --",
    ]
    _display.more()
    assert capsys.readouterr().out.splitlines()[-1] == "-- lines left: 2; yvm.more() shows the next page --"
    _display.more()
    assert capsys.readouterr().out == "       [6],\n       [7]])\n"
    _display.more()
    assert capsys.readouterr().out == ""


def test_a_value_that_fits_is_shown_as_it_is_and_ends_the_pages_before_it(capsys, native, monkeypatch):
    monkeypatch.setattr(native, "rows", 4)
    monkeypatch.setattr(native, "pages_values", True)
    _display.display_hook(numpy.arange(8).reshape(8, 1))
    _display.display_hook([1])
    assert capsys.readouterr().out.endswith("--\n[1]\n")
    _display.more()
    assert capsys.readouterr().out == ""


def test_the_window_of_a_single_row_shows_a_line_a_page(capsys, native, monkeypatch):
    monkeypatch.setattr(native, "rows", 1)
    monkeypatch.setattr(native, "pages_values", True)
    _display.display_hook(numpy.arange(2).reshape(2, 1))
    assert capsys.readouterr().out.startswith("array([[0],\n-- lines left: 1;")


def test_a_value_is_told_besides_its_text(capsys, native):
    native.values_wanted = True
    _display.display_hook([1, "a"])
    assert capsys.readouterr().out == "[1, 'a']\n"
    assert native.told_values == [({"text/plain": "[1, 'a']"}, {})]


def test_a_command_that_takes_its_values_gets_them_once(capsys, native):
    native.values_wanted = native.values_taken = True
    _display.display_hook(3)
    assert capsys.readouterr().out == ""
    assert native.told_values == [({"text/plain": "3"}, {})]


def test_a_paged_value_is_told_as_a_whole(capsys, native, monkeypatch):
    monkeypatch.setattr(native, "rows", 2)
    monkeypatch.setattr(native, "pages_values", True)
    native.values_wanted = True
    _display.display_hook(numpy.arange(3).reshape(3, 1))
    assert "lines left" in capsys.readouterr().out
    assert native.told_values == [({"text/plain": "array([[0],\n       [1],\n       [2]])"}, {})]


def test_display_shows_each_value_and_keeps_none_as_underscore(capsys, native):
    native.values_wanted = True
    builtins._ = "before"
    _display.display(1, None)
    assert capsys.readouterr().out == "1\nNone\n"
    assert [data["text/plain"] for data, _ in native.told_values] == ["1", "None"]
    assert builtins._ == "before"


def test_a_value_whose_media_types_raise_the_interrupt_is_not_half_shown(capsys, native):
    class Slow:
        def _repr_html_(self):
            raise native.Interrupt

    native.values_wanted = True
    with pytest.raises(native.Interrupt):
        _display.display_hook(Slow())
    assert capsys.readouterr().out == ""
    assert native.told_values == []


def test_a_value_of_a_type_that_cannot_be_hashed_is_shown(capsys):
    class Meta(type):
        def __eq__(self, other):
            return True

    class Odd(metaclass=Meta):
        def __repr__(self):
            return "odd"

    _display.display_hook(Odd())
    assert capsys.readouterr().out == "odd\n"
