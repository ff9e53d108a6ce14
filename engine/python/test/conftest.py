"""Lets the engine's Python side run outside the engine, on a stand-in for its native module."""

import pathlib
import sys
import types

import pytest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1]))


class Interrupt(KeyboardInterrupt):
    pass


_native = types.ModuleType("_yvm")
_native.Interrupt = Interrupt
_native.columns = 80
_native.rows = 24
_native.window = lambda: (_native.columns, _native.rows)
_native.formats_values = True
_native.pages_values = False
_native.how_to_display = lambda: (_native.formats_values, _native.pages_values)
_native.links = False
_native.links_tracebacks = lambda: _native.links
_native.written = []
for _stream in ("output", "error"):
    setattr(_native, f"write_{_stream}", lambda text: _native.written.append(text))
    setattr(_native, f"flush_{_stream}", lambda: None)
_native.paused = []
_native.pause = _native.paused.append
_native.running = lambda: ["1:1"]
_native.waiting = lambda: ["1:2", "1:3"]
_native.prompt_state = lambda: "busy"
_native.input_requests = lambda: [{"id": "1", "prompt": "? ", "password": False}]
_native.lines = []
_native.asked = []
_native.answered = []


def _ask_for_line(prompt, password):
    _native.asked.append((prompt, password))
    return _native.lines.pop(0)


_native.ask_for_line = _ask_for_line
_native.answer = lambda id, line: _native.answered.append((id, line))
_native.clear_console = lambda: None
_native.home_cursor = lambda: None
_native.current_command = lambda: _native.command
_native.may = lambda capability: capability not in _native.forbidden
_native.wants_values = lambda: _native.values_wanted
_native.takes_values = lambda: _native.values_taken
_native.tell_value = lambda data, metadata: _native.told_values.append((data, metadata))
_native.wants_progress = lambda: _native.progress_wanted
_native.tell_progress = lambda *told: _native.told_progress.append(told)
_native.tell_workspace = lambda *names: _native.told_names.append(names)
sys.modules["_yvm"] = _native


@pytest.fixture(autouse=True)
def native():
    """The stand-in, of which nobody has asked anything."""
    _native.command = types.SimpleNamespace(id="1:1")
    _native.forbidden = ()
    _native.values_wanted = _native.values_taken = _native.progress_wanted = False
    _native.told_values = []
    _native.told_progress = []
    _native.told_names = []
    return _native


@pytest.fixture
def workspace(monkeypatch):
    """An empty `__main__`."""
    import yvm._helpers
    import yvm._names

    main = types.ModuleType("__main__")
    monkeypatch.setattr(yvm._helpers, "__main__", main)
    monkeypatch.setattr(yvm._names, "__main__", main)
    return vars(main)
