import sys

import pytest
import yvm
from yvm import _helpers


def test_history_keeps_the_order_and_can_be_cut():
    _helpers._history.clear()
    for command in ("a", "b", "c"):
        _helpers.remember(command)
    assert yvm.history() == ["a", "b", "c"]
    assert yvm.history(2) == ["b", "c"]
    assert yvm.history(2.0) == ["b", "c"]
    assert yvm.history(0) == []
    assert yvm.history(10) == ["a", "b", "c"]


def test_history_is_bounded():
    for i in range(_helpers._HISTORY_LENGTH + 5):
        _helpers.remember(str(i))
    assert len(yvm.history()) == _helpers._HISTORY_LENGTH
    assert yvm.history(1) == [str(_helpers._HISTORY_LENGTH + 4)]


def test_pause_hands_its_length_on(native):
    native.paused.clear()
    yvm.pause()
    yvm.pause(2)
    assert native.paused == [0.0, 2.0]


@pytest.mark.parametrize("seconds", [-1, float("nan"), "x"])
def test_pause_of_bad_length_is_refused(seconds, native):
    native.paused.clear()
    with pytest.raises(ValueError):
        yvm.pause(seconds)
    assert native.paused == []


def test_state_and_queue(native):
    assert yvm.state() == {
        "running": ["1:1"],
        "waiting": 2,
        "prompt": "busy",
        "inputs": [{"id": "1", "prompt": "? ", "password": False}],
    }
    assert yvm.queue() == ["1:2", "1:3"]


def test_who_describes_variables(workspace):
    numpy = pytest.importorskip("numpy")
    workspace.update(b=numpy.zeros((2, 3)), a="text", _hidden=1, module=sys, function=len)
    described = yvm.who()
    assert [entry["name"] for entry in described] == ["a", "b", "function"]
    assert described[1]["type"] == "ndarray"
    assert described[1]["shape"] == [2, 3]
    assert described[1]["bytes"] >= 48
    assert described[2]["callable"] is True


class Proxy:
    """Of something that is not there."""

    @property
    def __class__(self):
        raise RuntimeError("there is nothing behind this proxy")


def test_a_proxy_keeps_no_helper_from_its_answer(workspace):
    workspace.update(proxy=Proxy(), other=1)
    assert [(entry["name"], entry["type"]) for entry in yvm.who()] == [("other", "int"), ("proxy", "Proxy")]
    assert yvm.inspect("proxy")["type"] == "Proxy"
    assert yvm.inspect("proxy.nothing") == {"found": False}
    assert "proxy" in yvm.complete("pro")["matches"]
    assert "proxy.mro" not in yvm.complete("proxy.mr")["matches"]


def test_the_values_of_the_workspace_are_described_with_their_texts(workspace):
    workspace.update(b=[1], a="text", module=sys)
    described = _helpers.describe_values(None)
    assert [(entry["name"], entry["text"]) for entry in described] == [("a", "'text'"), ("b", "[1]")]
    assert _helpers.describe_values({"x": 1})[0]["text"] == "1"


def test_reset_leaves_what_python_needs(workspace):
    workspace.update(a=1, _b=2, sys=sys)
    assert yvm.reset() == 3
    assert "a" not in workspace and "__name__" in workspace


def test_inspect_runs_no_property(workspace):
    class Trap:
        @property
        def trap(self):
            raise AssertionError

    workspace["trap"] = Trap()
    assert yvm.inspect("trap.trap")["type"] == "property"
    assert yvm.inspect("trap.nothing") == {"found": False}
    assert yvm.inspect("nothing") == {"found": False}


def test_inspect_survives_a_broken_representation(workspace):
    class Broken:
        def __repr__(self):
            raise ValueError

    workspace["broken"] = Broken()
    assert "its representation raised ValueError" in yvm.inspect("broken")["text"]


def test_inspect_cuts_long_texts(workspace):
    workspace["long"] = "x" * 5000
    assert len(yvm.inspect("long")["text"]) == _helpers._TEXT_LENGTH + 3


@pytest.mark.parametrize(
    "text, cursor, matches, start",
    [
        ("alph", None, ["alpha", "alphabet"], 0),
        ("f(alphab, 1)", 8, ["alphabet"], 2),
        ("sys.exc_inf", None, ["exc_info"], 4),
        ("nothing.x", None, [], 8),
        ("whil", None, ["while"], 0),
        ("", None, None, 0),
        ("alpha", 99, ["alpha", "alphabet"], 0),
    ],
)
def test_complete(workspace, text, cursor, matches, start):
    workspace.update(alpha=1, alphabet=2, _alpha=3, sys=sys)
    completed = yvm.complete(text, cursor)
    assert completed["start"] == start
    if matches is None:
        assert {"alpha", "len", "while"} <= set(completed["matches"])
        assert "_alpha" not in completed["matches"]
    else:
        assert completed["matches"] == matches


def test_names_with_an_underscore_are_completed_when_asked_for(workspace):
    workspace["_hidden"] = 1
    assert yvm.complete("_hid")["matches"] == ["_hidden"]
