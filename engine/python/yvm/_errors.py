"""Describes an exception as plain data, for clients that are no Python programs."""

import linecache

import _yvm

# Of a deeper stack, as an endless recursion leaves it, the middle is left out.
MAX_FRAMES = 200
# Bounds what one error can weigh; a chain this long is made by a program, not read by a person.
MAX_CAUSES = 50
# A line number beyond it, which only a hand-made exception has, counts as unknown.
_MAX_LINE = 2**31 - 1


def describe(exception):
    """Returns `(identifier, message, function, frames, cause)`.

    `identifier` is the type's qualified name, bare for builtins. `function` is that of the innermost
    frame, empty when there is none. `frames` are `(file, function, line, source line)`, innermost last,
    without the engine's own. `cause` is such a tuple for the exception that led to this one, or None.
    """
    chain = _chain(exception)
    described = None
    for link in reversed(chain):
        frames = _frames(link)
        function = frames[-1][1] if frames else ""
        described = (identifier(type(link)), message(link), function, frames, described)
    return described


def describe_interrupt(exception):
    """As `describe`, of the engine's interrupt without what led to it, so that no code of the user runs. None
    for any other exception."""
    if type(exception) is not _yvm.Interrupt or any(type(text) is not str for text in exception.args):
        return None
    frames = _frames(exception)
    function = frames[-1][1] if frames else ""
    return identifier(type(exception)), BaseException.__str__(exception), function, frames, None


def identifier(kind):
    if kind.__module__ in ("builtins", None):
        return kind.__qualname__
    return f"{kind.__module__}.{kind.__qualname__}"


def message(exception):
    if isinstance(exception, SystemExit):
        code = exception.code
        return f"exit was asked for with code {code!r}; the command ended, the engine goes on"
    try:
        text = str(exception)
    except Exception:
        text = f"<{type(exception).__name__}, which cannot be shown as text>"
    try:
        notes = [str(note) for note in getattr(exception, "__notes__", ())]
    except Exception:
        notes = ["<notes that cannot be shown as text>"]
    return "\n".join([text, *notes])


def _chain(exception):
    """The exception and those that led to it, each once, by the rules by which Python prints them."""
    chain = []
    seen = set()
    while exception is not None and id(exception) not in seen and len(chain) <= MAX_CAUSES:
        seen.add(id(exception))
        chain.append(exception)
        if exception.__cause__ is not None:
            exception = exception.__cause__
        elif exception.__suppress_context__:
            exception = None
        else:
            exception = exception.__context__
    return chain


def _frames(exception):
    frames = []
    traceback = exception.__traceback__
    while traceback is not None:
        code = traceback.tb_frame.f_code
        if not _is_engines_own(code.co_filename):
            frames.append((code.co_filename, code.co_qualname, traceback.tb_lineno or 0))
        traceback = traceback.tb_next
    if isinstance(exception, SyntaxError) and exception.filename and exception.lineno:
        # The line at fault was never run, so no frame stands for it.
        frames.append((str(exception.filename), "<module>", _line_number(exception.lineno)))
    left_out = len(frames) - MAX_FRAMES
    if left_out > 0:
        half = MAX_FRAMES // 2
        frames[half:-half] = [("", f"<{left_out} more frames>", 0)]
    for file in {frame[0] for frame in frames}:
        # A module that was edited and loaded anew would be quoted as it was before.
        linecache.checkcache(file)
    return [(file, function, line, _line(file, line)) for file, function, line in frames]


def _line_number(value):
    return value if isinstance(value, int) and 0 < value <= _MAX_LINE else 0


def _line(file, line):
    return linecache.getline(file, line).strip() if line else ""


def _is_engines_own(filename):
    return filename == "<yvm>" or filename.startswith("<yvm.")


def is_interrupt(exception):
    """Whether the exception is the engine's interrupt, or was raised while that one was handled."""
    return any(isinstance(link, _yvm.Interrupt) for link in _chain(exception))
