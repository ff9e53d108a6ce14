"""Shows the value of a command's last expression, as an interactive Python does."""

import builtins
import contextlib
import sys

import _yvm

# What NumPy wraps at if nobody has chosen a width.
_NUMPY_DEFAULT_WIDTH = 75

# Whose representation has no array in it, and so no lines to wrap.
_PLAIN_TYPES = frozenset((bool, int, float, complex, str, bytes))


def display(value):
    """The engine's `sys.displayhook`: None shows nothing; the last value shown is `_`."""
    if value is None:
        return
    # As Python's own hook does: a `_` of the previous value must not show in the representation.
    builtins._ = None
    if type(value) in _PLAIN_TYPES:
        text = repr(value)
    else:
        with _width_for_arrays():
            text = repr(value)
    sys.stdout.write(text + "\n")
    builtins._ = value


def install():
    sys.displayhook = sys.__displayhook__ = display


@contextlib.contextmanager
def _width_for_arrays():
    """Wraps arrays at the width of the client's window, unless a width was chosen by hand."""
    numpy = sys.modules.get("numpy")
    columns = _yvm.window_columns()
    if numpy is None or numpy.get_printoptions()["linewidth"] != _NUMPY_DEFAULT_WIDTH:
        yield
        return
    with numpy.printoptions(linewidth=columns):
        yield
