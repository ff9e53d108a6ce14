"""Threads and processes that a command starts."""

import _posixsubprocess
import _thread
import os
import subprocess
import sys
import threading
import traceback

import _yvm


def install():
    _inherit_the_command_in_threads()
    _give_children_a_clean_signal_mask()
    os.register_at_fork(after_in_child=_yvm.after_fork_in_child)


def _inherit_the_command_in_threads():
    """A thread works for the command that started it: its text carries that command's identity and goes
    to that command's streams, also after the command has ended. One that starts while no command runs
    works for none."""
    start = _thread.start_new_thread

    def start_new_thread(function, args, kwargs={}):
        return start(_yvm.run_thread, (_yvm.current_command(), function, args, kwargs))

    _thread.start_new_thread = _thread.start_new = start_new_thread
    threading._start_new_thread = start_new_thread


def _give_children_a_clean_signal_mask():
    """The engine's threads keep SIGINT and SIGTERM blocked, which belong to the server. A mask outlives
    `exec`: children would be deaf to `Popen.terminate` and to Ctrl-C."""
    subprocess._fork_exec = _with_signals_unblocked(_posixsubprocess.fork_exec)
    _posixsubprocess.fork_exec = subprocess._fork_exec
    for name in ("system", "posix_spawn", "posix_spawnp"):
        setattr(os, name, _with_signals_unblocked(getattr(os, name)))


def _with_signals_unblocked(function):
    def call(*args, **kwargs):
        return _yvm.call_with_signals_unblocked(function, args, kwargs)

    call.__name__ = function.__name__
    call.__doc__ = function.__doc__
    return call


def end_child(exception):
    """Ends a forked process whose code has come to its end by an exception, with the status that Python
    would give. By `_exit`, since the destructors of the server are none of its business."""
    status = 1
    if isinstance(exception, SystemExit):
        code = exception.code
        if code is None or isinstance(code, int):
            status = code or 0
        else:
            print(code, file=sys.stderr)
    else:
        traceback.print_exception(exception)
    os._exit(status & 0xFF)
