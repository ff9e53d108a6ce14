"""Tells the engine's debugger of warnings, and of NaNs and infinities that NumPy makes."""

import sys
import warnings

import _yvm
import numpy

from yvm._errors import identifier

# In NumPy's order; it reports the kinds of one operation one by one, each with the bits of all.
_KINDS = {
    "divide by zero": ("divide", 1),
    "overflow": ("over", 2),
    "underflow": ("under", 4),
    "invalid value": ("invalid", 8),
}
# An underflow makes neither a NaN nor an infinity.
_WATCHED = {"divide": 1, "over": 2, "invalid": 8}

_plain_showwarnmsg = None
_watches_nans = False
# What the program has asked NumPy for.
_modes_before = {}
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
    # First, as the rest may fail, and a warning that comes again would be shown no more.
    warnings._filters_mutated()
    (_plain_showwarnmsg or _plain)(msg)
    kinds = [identifier(kind) for kind in msg.category.__mro__ if issubclass(kind, Warning)]
    _yvm.debug_stop_at("warning", kinds, f"{kinds[0]}: {msg.message}")


def _plain(msg):
    warnings._showwarnmsg_impl(msg)


def watch_nans(on):
    """Operations of this thread that make a NaN or an infinity are told to the debugger; then they do what
    `numpy.seterr` asks for. Harmless when repeated: a program may have changed it meanwhile."""
    global _watches_nans, _modes_before, _call_before
    if on:
        if _watches_nans and sys._getframe().f_back is not None:
            # Inside a program, which may be in a block that ends and gives back other modes.
            return
        modes = numpy.geterr()
        if numpy.geterrcall() is _note_operation:
            _modes_before.update((name, mode) for name, mode in modes.items() if mode != "call")
        else:
            _modes_before = modes
            _call_before = numpy.seterrcall(_note_operation)
        numpy.seterr(**dict.fromkeys(_WATCHED, "call"))
    elif _watches_nans:
        _give_modes_back()
        # A program may hold modes that it read meanwhile, as `numpy.errstate` does. With no function to call
        # they would make every such operation a NameError.
        if _call_before is not None and numpy.geterrcall() is _note_operation:
            numpy.seterrcall(_call_before)
    _watches_nans = on


def _give_modes_back():
    modes = numpy.geterr()
    numpy.seterr(**{name: _modes_before[name] for name in _WATCHED if modes[name] == "call"})


class _OperationNote:
    """What NumPy calls, or writes to where its mode is "log"."""

    def __call__(self, kind, flags):
        name, bit = _KINDS[kind]
        if not _watches_nans:
            _give_modes_back()
        # An operation that makes several kinds stops once.
        elif name in _WATCHED and not any(flags & other for other in _WATCHED.values() if other < bit):
            _yvm.debug_stop_at("nan", [], f"{kind} encountered")
        _do_as_before(name, kind, flags)

    def write(self, text):
        if _call_before is not None:
            _call_before.write(text)


_note_operation = _OperationNote()


def _do_as_before(name, kind, flags):
    mode = _modes_before[name]
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
