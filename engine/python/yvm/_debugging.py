"""What the engine's debugger asks about frames and exceptions."""

import dis
import functools
import linecache
import sys

import _yvm

from yvm._errors import MAX_FRAMES, identifier, message

# Python raises these to end loops, and handles them itself.
_OF_LOOPS = (StopIteration, StopAsyncIteration, GeneratorExit)


def install():
    sys.breakpointhook = _yvm.debug_stop_here


def describe_frames(frames):
    """For `(code, line)`, outermost first: `(file, function, line, source line)`. Of many, the middle is left
    out as in errors."""
    left_out = len(frames) - MAX_FRAMES
    if left_out <= 0:
        return [_describe_frame(*frame) for frame in frames]
    half = MAX_FRAMES // 2
    return [
        *(_describe_frame(*frame) for frame in frames[:half]),
        ("", f"<{left_out} more frames>", 0, ""),
        *(_describe_frame(*frame) for frame in frames[-half:]),
    ]


def describe_exception(exception):
    return f"{identifier(type(exception))}: {message(exception)}"


def identifiers(exception):
    """The names by which a breakpoint may mean the exception: those of its type and of the bases."""
    return [identifier(kind) for kind in type(exception).__mro__ if issubclass(kind, BaseException)]


def is_of_loops(exception):
    return isinstance(exception, _OF_LOOPS)


def is_caught(frame, beneath):
    """Whether an exception that is raised in the frame now stands in an `except` clause's `try`, there or in
    a frame above `beneath`. Which types the clause names is not looked at."""
    while frame is not None and frame is not beneath:
        if _catches(frame.f_code, frame.f_lasti):
            return True
        frame = frame.f_back
    return False


def _describe_frame(code, line):
    file = code.co_filename
    # A module that was edited and loaded anew would be quoted as it was before.
    linecache.checkcache(file)
    return file, code.co_qualname, line, linecache.getline(file, line).strip() if line else ""


@functools.lru_cache(maxsize=1000)
def _catches(code, offset):
    entries = dis._parse_exception_table(code)
    while True:
        # Of nested ones, only the innermost covers an instruction in the table.
        handlers = [entry.target for entry in entries if entry.start <= offset < entry.end]
        if not handlers:
            return False
        caught, raised_at = _examine_handler(code, handlers[0])
        if caught or raised_at <= offset:
            return caught
        # It was the end of a `finally` or `with`, which raises the exception again.
        offset = raised_at


def _examine_handler(code, target):
    """Whether the handler is an `except` clause; if not, where it raises the exception again."""
    is_first = True
    for instruction in dis.get_instructions(code):
        if instruction.offset < target or instruction.opname == "PUSH_EXC_INFO":
            continue
        if instruction.opname in ("CHECK_EXC_MATCH", "CHECK_EG_MATCH", "RETURN_VALUE"):
            return True, 0
        if is_first and instruction.opname == "POP_TOP":
            return True, 0
        if instruction.opname == "RERAISE":
            return False, instruction.offset
        is_first = False
    return False, 0
