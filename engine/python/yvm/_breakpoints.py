"""What the engine has to know of sources to set breakpoints in them."""

import functools
import linecache
import os
import stat
import tokenize
import warnings


def compile_source(file):
    """The code of a whole file, or of a command that was evaluated. Raises ValueError that says why there is
    none."""
    if file.startswith("<"):
        # The lines of commands are kept there for tracebacks; see `_source`.
        if file not in linecache.cache:
            raise ValueError(f"no such command: {file}; the last commands are known by the names that their errors show")
        return _compile("".join(linecache.getlines(file)), file)
    try:
        status = os.stat(file)
    except (OSError, ValueError):
        raise ValueError(f"no such file: {file}") from None
    # A pipe would hold the engine up until somebody writes, and a device for good.
    if not stat.S_ISREG(status.st_mode):
        raise ValueError(f"no regular file: {file}")
    return _compile_file(file, status.st_mtime_ns, status.st_size)


def compile_condition(text):
    """Raises ValueError where the text is no expression."""
    try:
        with warnings.catch_warnings():
            warnings.simplefilter("ignore")
            return compile(text.strip(), "<condition>", "eval", dont_inherit=True)
    except (SyntaxError, ValueError, MemoryError, RecursionError) as error:
        reason = error.msg if isinstance(error, SyntaxError) else str(error)
        raise ValueError(f"the condition {text!r} is no expression: {reason}") from None


# Several breakpoints of one file come one behind the other.
@functools.lru_cache(maxsize=4)
def _compile_file(file, _modified, _size):
    try:
        with tokenize.open(file) as source:
            text = source.read()
    except (OSError, SyntaxError, UnicodeDecodeError) as error:
        raise ValueError(f"the file {file} cannot be read: {error}") from None
    return _compile(text, file)


def _compile(text, file):
    try:
        # Whoever runs the code is warned of it; not who sets a breakpoint.
        with warnings.catch_warnings():
            warnings.simplefilter("ignore")
            return compile(text, file, "exec", dont_inherit=True)
    except (SyntaxError, ValueError, MemoryError, RecursionError) as error:
        raise ValueError(f"the file {file} cannot be compiled: {error}") from None
