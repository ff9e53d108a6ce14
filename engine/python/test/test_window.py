import shutil

import numpy
import pytest
from yvm import _window


@pytest.fixture(autouse=True)
def installed(monkeypatch):
    monkeypatch.setattr(shutil, "get_terminal_size", shutil.get_terminal_size)
    for name in ("COLUMNS", "LINES"):
        monkeypatch.delenv(name, raising=False)
    _window.install()
    yield
    numpy.set_string_function(None, repr=True)
    numpy.set_string_function(None, repr=False)


def test_arrays_wrap_at_the_window_wherever_they_are_made_text(native, monkeypatch):
    monkeypatch.setattr(native, "columns", 20)
    assert str(numpy.arange(9)) == "[0 1 2 3 4 5 6 7 8]"
    assert str(numpy.arange(12)) == "[ 0  1  2  3  4  5\n  6  7  8  9 10 11]"
    assert repr([numpy.arange(6)]) == "[array([0, 1, 2, 3,\n       4, 5])]"
    assert f"{numpy.arange(12)}".count("\n") == 1


def test_a_width_that_was_chosen_is_kept(native, monkeypatch):
    monkeypatch.setattr(native, "columns", 20)
    with numpy.printoptions(linewidth=40):
        assert str(numpy.arange(12)).count("\n") == 0


def test_subclasses_keep_their_own_text():
    assert repr(numpy.ma.array([1, 2], mask=[0, 1])).startswith("masked_array(")
    assert repr(numpy.matrix([[1]])) == "matrix([[1]])"


def test_the_terminal_is_the_window(native, monkeypatch):
    monkeypatch.setattr(native, "columns", 33)
    monkeypatch.setattr(native, "rows", 5)
    assert shutil.get_terminal_size() == (33, 5)
    assert shutil.get_terminal_size((1, 1)) == (33, 5)


def test_the_environment_overrules_the_window(monkeypatch):
    monkeypatch.setenv("COLUMNS", "44")
    assert shutil.get_terminal_size().columns == 44
