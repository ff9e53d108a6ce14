"""Shows the value of a command's last expression, as an interactive Python does."""

import builtins
import sys

import _yvm
import numpy

from yvm import _media
from yvm._window import columns_for_arrays

# Whose representation has no array in it, and one line. By identity, as a type may hash and compare as its
# metaclass likes.
_PLAIN_TYPES = frozenset(map(id, (bool, int, float, complex, str, bytes)))

# Of the last value that was displayed in pages, the lines that were not shown yet.
_rest = []


def display_hook(value):
    """The engine's `sys.displayhook`: None shows nothing; the last value shown is `_`."""
    if value is None:
        return
    # As Python's own hook does: a `_` of the previous value must not show in the representation.
    builtins._ = None
    _show(value)
    builtins._ = value


def display(*values):
    """Shows each value as the last expression of a command is shown, None as well. A figure is sent as it
    is now, and stays open."""
    for value in values:
        _show(value)


def more():
    """Shows the next page of the last value that was displayed in pages, which is where text goes to a
    destination that supports them (`supportsMore`). At its end there is nothing to show."""
    # The last row of the window is for the line that tells of the others.
    rows = max(_yvm.window()[1] - 1, 1)
    page, _rest[:] = _rest[:rows], _rest[rows:]
    if _rest:
        page.append(f"-- lines left: {len(_rest)}; yvm.more() shows the next page --")
    if page:
        sys.stdout.write("\n".join(page) + "\n")


def install():
    sys.displayhook = sys.__displayhook__ = display_hook


def _show(value):
    wanted = _yvm.wants_values()
    if id(type(value)) in _PLAIN_TYPES:
        text = repr(value)
        paged = False
    else:
        formatted, paged = _yvm.how_to_display()
        text = _representation(value, formatted)
    # Made before the text leaves: a value whose media types raise is not half shown.
    bundle = _media.bundle(value, text) if wanted else None
    if not (wanted and _yvm.takes_values()):
        if paged:
            _rest[:] = text.split("\n")
            more()
        else:
            sys.stdout.write(text + "\n")
    if wanted:
        _yvm.tell_value(*bundle)


def _representation(value, formatted):
    # The one that receives a value as it is breaks its lines himself, if anybody does.
    columns = columns_for_arrays() if formatted else sys.maxsize
    if columns is None:
        return repr(value)
    with numpy.printoptions(linewidth=columns):
        return repr(value)
