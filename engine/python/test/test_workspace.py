import gc
import weakref

import numpy
import pytest
from yvm import _workspace


@pytest.fixture
def changes(workspace, native):
    """Runs a source in the workspace, as the engine runs a command; returns what was told."""

    def run(source):
        _workspace.begin()
        code = compile(source, "<command>", "exec")
        _workspace.note_assignments(code)
        exec(code, workspace)
        _workspace.end()
        told, native.told_names = native.told_names, []
        return told

    yield run
    _workspace.forget()


def test_names_appear_change_and_go(changes):
    assert changes("b = 1; a = [1]") == [(["a", "b"], [], [])]
    assert changes("b = 2; del a; c = None") == [(["c"], ["b"], ["a"])]
    assert changes("c = 0") == [([], ["c"], [])]


def test_nothing_is_told_where_nothing_changed(changes):
    changes("a = [1]; b = 'text'; import os; f = len")
    assert changes("a; b; f") == []
    assert changes("a.append(2)") == []


def test_modules_and_names_with_an_underscore_do_not_count(changes):
    assert changes("import os; _a = 1; __b__ = 2; _a = 3") == []
    assert changes("def f(): pass\nclass C: pass") == [(["C", "f"], [], [])]


def test_a_value_that_stands_where_the_old_one_stood_is_another(changes):
    # Lists and floats come back to an address at every other turn.
    changes("x = [0.5]; y = 0.25")
    assert changes("for i in range(2): x = [float(i)]\nfor i in range(2): y = float(i) / 3") == [
        (["i"], ["x", "y"], [])
    ]
    changes("def step():\n    global y\n    y = y / 3")
    assert changes("step(); step()") == [([], ["y"], [])]


def test_assignments_are_found_wherever_they_stand(workspace):
    source = "\n".join(f"n{i} = {i}" for i in range(300))
    source += "\ndef f():\n    global g\n    g = 1\n    local = 2\n[w := 1 for i in ()]\nfor last in (): pass"
    _workspace.note_assignments(compile(source, "<command>", "exec"))
    assert {f"n{i}" for i in range(300)} | {"f", "g", "w", "last"} == _workspace._assigned
    _workspace.forget()


def test_nothing_is_kept_alive(changes, workspace):
    changes("import numpy; a = numpy.zeros(3); s = 'x' * 100_000")
    array = weakref.ref(workspace["a"])
    size = len(gc.get_referrers(workspace["s"]))
    workspace["a"] = numpy.zeros(4)
    assert array() is None
    assert size == 1  # the workspace
    assert changes("s = 'y' * 100_000") == [([], ["a", "s"], [])]


def test_who_begins_to_listen_during_a_command_is_told_of_all_names(workspace, native):
    workspace["a"] = 1
    _workspace.end()
    assert native.told_names == [(["a"], [], [])]
    _workspace.forget()


def test_what_changed_while_nobody_listened_is_not_told(changes, workspace):
    changes("a = 1")
    _workspace.forget()
    workspace["b"] = 2
    assert changes("c = 3") == [(["c"], [], [])]


ODD = {
    "of a type that cannot be hashed": """
class Meta(type):
    def __eq__(self, other): return True
class Odd(metaclass=Meta): pass
odd = Odd()
""",
    "of a class that is not told": """
class Odd:
    @property
    def __class__(self): raise RuntimeError("there is nothing behind this proxy")
odd = Odd()
""",
}


@pytest.mark.parametrize("source", ODD.values(), ids=ODD.keys())
def test_an_odd_value_keeps_no_other_from_being_told(changes, source):
    appeared = changes(source)[0][0]
    assert "odd" in appeared
    assert changes("x = 1") == [(["x"], [], [])]
    assert changes("odd = Odd()") == [([], ["odd"], [])]
    assert changes("del odd") == [([], [], ["odd"])]
