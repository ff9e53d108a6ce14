import io
import sys
import threading
import traceback

import pytest
from yvm import _streams, _tracebacks


@pytest.fixture
def install(monkeypatch, native):
    """To be called in the body of a test: pytest sets the hooks and streams anew before it."""

    def install():
        monkeypatch.setattr(traceback, "print_exception", traceback.print_exception)
        monkeypatch.setattr(threading, "excepthook", threading.__excepthook__)
        _tracebacks.install()
        stream = _streams.TextOutput("<stderr>", native.write_error, native.flush_error)
        monkeypatch.setattr(sys, "stderr", stream)
        monkeypatch.setattr(native, "written", [])

    return install


def _fail():
    raise ValueError("b")


def _print_failure(**keywords):
    try:
        _fail()
    except ValueError:
        traceback.print_exc(**keywords)


def test_a_place_in_a_file_becomes_a_link():
    assert _tracebacks.link('  File "/a b/x.py", line 12, in f\n') == (
        '  \x1b]8;;file:///a%20b/x.py#L12\x1b\\File "/a b/x.py", line 12\x1b]8;;\x1b\\, in f\n'
    )


def test_what_is_in_no_file_has_no_link():
    text = '  File "<command 3>", line 1, in <module>\nFile "relative.py", line 1\n'
    assert _tracebacks.link(text) == text


def test_no_name_of_a_file_can_end_a_link():
    linked = _tracebacks.link('File "/\x1b\\\x07\u00e9\udcff.py", line 1')
    assert linked.startswith("\x1b]8;;file:///%1B%5C%07%C3%A9%FF.py#L1\x1b\\File")


def test_tracebacks_are_linked_where_the_destination_supports_it(native, monkeypatch, install):
    install()
    _print_failure()
    plain = "".join(native.written)
    assert plain.endswith("ValueError: b\n")
    assert "\x1b" not in plain
    native.written.clear()
    monkeypatch.setattr(native, "links", True)
    _print_failure()
    assert native.written == [_tracebacks.link(plain)]
    assert "\x1b]8;;file:///" in native.written[0]


def test_a_traceback_for_another_file_is_not_linked(native, monkeypatch, install):
    install()
    monkeypatch.setattr(native, "links", True)
    text = io.StringIO()
    _print_failure(file=text)
    assert "\x1b" not in text.getvalue()
    monkeypatch.setattr(sys, "stderr", text)
    _print_failure()
    assert "\x1b" not in text.getvalue()
    assert native.written == []


def test_the_limit_of_a_traceback_is_kept(native, monkeypatch, install):
    install()
    monkeypatch.setattr(native, "links", True)
    _print_failure(limit=1)
    assert "_fail\n" not in native.written[0]


def test_the_traceback_of_a_thread_is_linked(native, monkeypatch, install):
    install()
    monkeypatch.setattr(native, "links", True)
    thread = threading.Thread(target=_fail, name="w")
    thread.start()
    thread.join()
    (text,) = native.written
    assert text.startswith("Exception in thread w:\nTraceback (most recent call last):\n")
    assert text.endswith("ValueError: b\n")
    assert "\x1b]8;;file:///" in text


def test_the_exit_of_a_thread_is_silent(native, monkeypatch, install):
    install()
    monkeypatch.setattr(native, "links", True)
    thread = threading.Thread(target=sys.exit)
    thread.start()
    thread.join()
    assert native.written == []
