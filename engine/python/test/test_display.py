import builtins

import numpy
import pytest
from yvm import _display


def test_none_shows_nothing(capsys):
    _display.display(None)
    assert capsys.readouterr().out == ""


def test_a_value_is_shown_and_kept_as_underscore(capsys):
    _display.display([1, "a"])
    assert capsys.readouterr().out == "[1, 'a']\n"
    assert builtins._ == [1, "a"]


def test_a_value_is_written_in_one_piece(monkeypatch):
    pieces = []
    monkeypatch.setattr("sys.stdout", type("Stream", (), {"write": staticmethod(pieces.append)}))
    _display.display(3)
    assert pieces == ["3\n"]


def test_arrays_take_the_width_of_the_window(capsys, native, monkeypatch):
    monkeypatch.setattr(native, "columns", 20)
    _display.display(numpy.arange(6))
    assert capsys.readouterr().out == "array([0, 1, 2, 3,\n       4, 5])\n"
    assert numpy.get_printoptions()["linewidth"] == 75


def test_a_width_that_was_chosen_is_kept(capsys, native, monkeypatch):
    monkeypatch.setattr(native, "columns", 20)
    with numpy.printoptions(linewidth=40):
        _display.display(numpy.arange(6))
    assert capsys.readouterr().out == "array([0, 1, 2, 3, 4, 5])\n"


def test_a_representation_that_raises_shows_nothing(capsys):
    class Broken:
        def __repr__(self):
            raise ValueError("b")

    with pytest.raises(ValueError):
        _display.display(Broken())
    assert capsys.readouterr().out == ""
