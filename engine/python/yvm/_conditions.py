"""Tells the engine's debugger of warnings, and of NaNs and infinities that NumPy makes."""

import sys
import warnings

import _yvm
import numpy

from yvm._errors import identifier

# In NumPy's order; it reports the kinds of one operation one by one, each with the bits of all.
_KINDS = {"divide by zero": ("divide", 1), "overflow": ("over", 2), "invalid value": ("invalid", 8)}

_plain_showwarnmsg = None
_modes_before = None
_call_before = None


def watch_warnings(on):
    """A warning that Python would show is told to the debugger, and shown again each time that it comes."""
    global _plain_showwarnmsg
    if on and _plain_showwarnmsg is None:
        # What is installed above it, such as a recorder of warnings, stays in its place.
        _plain_showwarnmsg = warnings._showwarnmsg
        warnings._showwarnmsg = _show_warning
        # A warning that was shown before counts as new.
        warnings._filters_mutated()
    elif not on and _plain_showwarnmsg is not None:
        warnings._showwarnmsg = _plain_showwarnmsg
        _plain_showwarnmsg = None


def _show_warning(msg):
    (_plain_showwarnmsg or _plain)(msg)
    kinds = [identifier(kind) for kind in msg.category.__mro__ if issubclass(kind, Warning)]
    warnings._filters_mutated()
    _yvm.debug_stop_at("warning", kinds, f"{kinds[0]}: {msg.message}")


def _plain(msg):
    warnings._showwarnmsg_impl(msg)


def watch_nans(on):
    """Operations of this thread that make a NaN or an infinity are told to the debugger; then they do what
    `numpy.seterr` asks for. Harmless when repeated: a program may have changed it meanwhile."""
    global _modes_before, _call_before
    if on:
        modes = numpy.geterr()
        if numpy.geterrcall() is _note_operation and modes["invalid"] == "call":
            return
        _modes_before = modes
        if numpy.geterrcall() is not _note_operation:
            _call_before = numpy.geterrcall()
        numpy.seterrcall(_note_operation)
        numpy.seterr(divide="call", over="call", invalid="call")
    elif _modes_before is not None:
        numpy.seterr(**_modes_before)
        numpy.seterrcall(_call_before)
        _modes_before = _call_before = None


def _note_operation(kind, flags):
    name, bit = _KINDS[kind]
    # An operation that makes several kinds stops once.
    if not any(flags & other for _, other in _KINDS.values() if other < bit):
        _yvm.debug_stop_at("nan", [], f"{kind} encountered")
    _do_as_before(name, kind, flags)


def _do_as_before(name, kind, flags):
    mode = _modes_before[name] if _modes_before else "warn"
    text = f"{kind} encountered"
    if mode == "warn":
        warnings.warn(text, RuntimeWarning, stacklevel=3)
    elif mode == "raise":
        raise FloatingPointError(text)
    elif mode == "print":
        print(f"Warning: {text}", file=sys.stderr)
    elif mode == "call" and _call_before is not None:
        _call_before(kind, flags)
    elif mode == "log" and _call_before is not None:
        _call_before.write(f"Warning: {text}\n")
