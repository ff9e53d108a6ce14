import types

import pytest
import yvm
from yvm import _input


@pytest.fixture
def lines(native):
    """Those that are answered, None for the end of the input."""
    for notes in (native.lines, native.asked, native.answered):
        notes.clear()
    return native.lines


def test_the_prompt_is_written_and_asked(lines, native, capsys):
    lines += ["a line", ""]
    assert yvm.input("name? ") == "a line"
    assert yvm.input(42, password=True) == ""
    assert native.asked == [("name? ", False), ("42", True)]
    assert capsys.readouterr().out == "name? 42"


def test_the_end_of_the_input_is_an_error_of_input_and_an_empty_line_of_the_file(lines):
    lines += [None, None, None]
    with pytest.raises(EOFError):
        yvm.input()
    assert _input.Input().readline() == ""
    assert _input.Input().read() == ""


@pytest.mark.parametrize("text, line", [("a", "a"), ("a\n", "a"), ("a\r\n", "a"), ("", ""), (None, None)])
def test_an_answer_is_one_line_without_its_end(lines, native, text, line):
    yvm.answer(1, text)
    assert native.answered == [("1", line)]


@pytest.mark.parametrize("text, error", [("a\nb", ValueError), ("a\rb", ValueError), (1.0, TypeError)])
def test_an_answer_that_is_no_line_is_refused(lines, native, text, error):
    with pytest.raises(error):
        yvm.answer("1", text)
    assert native.answered == []


def test_lines_can_be_read_in_parts(lines):
    lines += ["abc", "de", None]
    file = _input.Input()
    assert file.readline(0) == ""
    assert file.readline(2) == "ab"
    assert file.readline() == "c\n"
    assert file.read(1) == "d"
    assert file.read() == "e\n"


def test_a_read_of_a_length_asks_for_as_many_lines_as_it_takes(lines, native):
    lines += ["a", "b", "c"]
    file = _input.Input()
    assert file.read(5) == "a\nb\nc"
    assert len(native.asked) == 3
    assert file.readline() == "\n"


def test_what_is_left_of_a_line_is_not_for_another_command(lines, native, monkeypatch):
    lines += ["of the first", "of the second"]
    file = _input.Input()
    monkeypatch.setattr(native, "current_command", lambda: types.SimpleNamespace(id="1:1"))
    assert file.readline(2) == "of"
    monkeypatch.setattr(native, "current_command", lambda: types.SimpleNamespace(id="1:2"))
    assert file.readline() == "of the second\n"


def test_iteration_ends_with_the_input(lines):
    lines += ["a", "b", None]
    assert list(_input.Input()) == ["a\n", "b\n"]
