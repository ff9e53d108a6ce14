"""Figures of matplotlib, which are drawn without a window and sent as images.

matplotlib is loaded by those who use it. When it is, it draws with `yvm._figure_backend`, unless the
environment names another backend (`MPLBACKEND`). A figure that pyplot opened belongs to the command that
opened it: at the end of that command it is sent and closed.
"""

import base64
import importlib.abc
import io
import os
import struct
import sys
import traceback
import weakref

import _yvm

from yvm._helpers import is_a

# The managers of the figures that are open, in the order of their opening. The engine looks at the end of
# each command whether there are any.
opened = []

# The figures that clients have seen, if perhaps not as they are now.
_sent = weakref.WeakSet()

_MEDIA_TYPES = {"png": "image/png", "svg": "image/svg+xml"}
_format = "png"


def figure_format(name=None):
    """Figures are sent as `png`, which is the default, or as `svg`, for all clients. Returns the format that
    was in use."""
    global _format
    before = _format
    if name is not None:
        if name not in _MEDIA_TYPES:
            raise ValueError(f"figures are sent as {' or '.join(_MEDIA_TYPES)}, not as {name!r}")
        _format = name
    return before


def is_figure(value):
    module = sys.modules.get("matplotlib.figure")
    return module is not None and is_a(value, module.Figure)


def check_allowed():
    if not _yvm.may("figures"):
        raise RuntimeError('the command may not draw figures: its run options give it no "figures"')


def render(figure):
    """Returns `(data, metadata)` by media type; the metadata are `width` and `height` in pixels."""
    check_allowed()
    file = io.BytesIO()
    figure.savefig(file, format=_format, dpi=figure.dpi)
    _sent.add(figure)
    # What changes the figure from now on sets it again.
    figure.stale = False
    content = file.getvalue()
    if _format == "svg":
        text = content.decode("utf-8")
        width, height = (round(inches * figure.dpi) for inches in figure.get_size_inches())
    else:
        text = base64.b64encode(content).decode("ascii")
        # Of its header, since a tight bounding box makes the image smaller than the figure.
        width, height = struct.unpack(">II", content[16:24])
    media_type = _MEDIA_TYPES[_format]
    return {media_type: text}, {media_type: {"width": width, "height": height}}


def send(manager):
    """Sends a figure unless it was sent as it is now, or there is nothing in it."""
    figure = manager.canvas.figure
    # The first of all children is the background.
    is_empty = len(figure.get_children()) <= 1
    if not is_empty and (figure.stale or figure not in _sent) and _yvm.wants_values():
        data, metadata = render(figure)
        _yvm.tell_value({**data, "text/plain": repr(figure)}, metadata)


def of_this_command():
    """The managers of the open figures that the command of this thread opened."""
    command = _yvm.current_command()
    return [manager for manager in opened if manager.command is command]


def end_command(sends):
    """Sends the figures of the command that ends, or does not, and closes them. One that cannot be drawn is
    told on standard error, and keeps no other from being sent."""
    # What threads have left over from commands before it goes with the first that runs above no other.
    managers = list(opened) if len(_yvm.running()) <= 1 else of_this_command()
    try:
        for manager in managers if sends else ():
            try:
                send(manager)
            except Exception as error:
                print(f"figure {manager.num} could not be drawn:", file=sys.stderr)
                traceback.print_exception(error)
    finally:
        for manager in managers:
            manager.close()


class _MatplotlibFinder(importlib.abc.MetaPathFinder):
    """Lets matplotlib draw with the engine's backend as soon as it is loaded. By the environment, programs
    that a command starts would be told of a backend that they cannot load."""

    def find_spec(self, fullname, path=None, target=None):
        if fullname != "matplotlib":
            return None
        for finder in sys.meta_path:
            spec = finder.find_spec(fullname, path, target) if finder is not self else None
            if spec is not None and spec.loader is not None:
                spec.loader.exec_module = _then_choose_backend(spec.loader.exec_module)
                return spec
        return None


def _then_choose_backend(exec_module):
    def load(module):
        exec_module(module)
        if not os.environ.get("MPLBACKEND"):
            module.rcParams["backend"] = "module://yvm._figure_backend"

    return load


def install():
    sys.meta_path.insert(0, _MatplotlibFinder())
