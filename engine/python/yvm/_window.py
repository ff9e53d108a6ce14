"""Makes libraries wrap their text at the window of whoever reads the running command."""

import shutil

import _yvm
import numpy

# What NumPy wraps at if nobody has chosen a width.
_NUMPY_DEFAULT_WIDTH = 75


def install():
    shutil.get_terminal_size = _of_the_command(shutil.get_terminal_size)
    # NumPy 2 has no such function: there, only displayed values take the window's width.
    if hasattr(numpy, "set_string_function"):
        numpy.set_string_function(lambda array: numpy.array_repr(array, columns_for_arrays()), repr=True)
        numpy.set_string_function(lambda array: numpy.array_str(array, columns_for_arrays()), repr=False)


def columns_for_arrays():
    """The width of the window; None, which is NumPy's own setting, if somebody has chosen one there."""
    if numpy.get_printoptions()["linewidth"] != _NUMPY_DEFAULT_WIDTH:
        return None
    return _yvm.window()[0]


def _of_the_command(get_terminal_size):
    def size(fallback=(80, 24)):
        """The size of the window that shows the text of the running command, unless the environment
        (`COLUMNS`, `LINES`) says something else. There is always one, so `fallback` is not used."""
        return get_terminal_size(fallback=_yvm.window())

    return size
