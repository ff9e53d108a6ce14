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


def test_an_unformatted_array_keeps_each_row_in_one_line(capsys, native, monkeypatch):
    monkeypatch.setattr(native, "columns", 20)
    monkeypatch.setattr(native, "formats_values", False)
    _display.display(numpy.arange(60))
    assert capsys.readouterr().out.count("\n") == 1


def test_a_long_value_is_shown_page_by_page(capsys, native, monkeypatch):
    monkeypatch.setattr(native, "rows", 4)
    monkeypatch.setattr(native, "pages_values", True)
    _display.display(numpy.arange(8).reshape(8, 1))
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
    _display.display(numpy.arange(8).reshape(8, 1))
    _display.display([1])
    assert capsys.readouterr().out.endswith("--\n[1]\n")
    _display.more()
    assert capsys.readouterr().out == ""


def test_the_window_of_a_single_row_shows_a_line_a_page(capsys, native, monkeypatch):
    monkeypatch.setattr(native, "rows", 1)
    monkeypatch.setattr(native, "pages_values", True)
    _display.display(numpy.arange(2).reshape(2, 1))
    assert capsys.readouterr().out.startswith("array([[0],\n-- lines left: 1;")
