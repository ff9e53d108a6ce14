"""What a client, or code that runs at a debug prompt, asks of the debugger.

While a command is stopped, these act on the innermost stop. Without one they raise RuntimeError. A command
needs the capability `debugger`.
"""

import _yvm

from yvm._debugging import describe_frames
from yvm._helpers import describe_values
from yvm._source import remember_lines

__all__ = [
    "breakpoints",
    "down",
    "locals",
    "name_command",
    "quit",
    "resume",
    "stack",
    "step",
    "step_in",
    "step_out",
    "stop",
    "up",
]


def resume():
    """Lets the stopped command go on."""
    _yvm.debug_leave("resume")


def step():
    """Goes on to the next line of the selected frame, or behind its end."""
    _yvm.debug_leave("step")


def step_in():
    """Goes on to the next line, also of a function that is called."""
    _yvm.debug_leave("step_in")


def step_out():
    """Goes on to the next line of the caller of the selected frame."""
    _yvm.debug_leave("step_out")


def quit():
    """Ends the stopped command as an interrupt would."""
    _yvm.debug_leave("quit")


def up(count=1):
    """Selects the frame that called the selected one, or is as many calls out as told. Returns the stack."""
    _yvm.debug_select(int(count))
    return stack()


def down(count=1):
    """Selects the frame that the selected one called, or is as many calls in as told. Returns the stack."""
    _yvm.debug_select(-int(count))
    return stack()


def stack():
    """The frames of the stopped command, outermost first: `file`, `function`, `line`, `source` and whether
    it is `selected`. Of many, the middle is left out."""
    frames, selected = _yvm.debug_stack()
    described = describe_frames([(code, line) for _, code, line in frames])
    # Counted from the end, as the middle may be left out.
    chosen = selected - len(frames) + len(described)
    return [
        {"file": file, "function": function, "line": line, "source": source, "selected": index == chosen}
        for index, (file, function, line, source) in enumerate(described)
    ]


def locals():
    """The variables of the selected frame, by name, as `yvm.who` tells them, and their `text`."""
    frames, selected = _yvm.debug_stack()
    frame = frames[selected][0] if frames else None
    return describe_values(frame.f_locals if frame is not None else None)


def breakpoints():
    """All breakpoints, in the order in which they were set: at places `file`, `function`, `line` and
    `anonymous_index` as far as they count, and the `condition`; others their `type` and `message_id`."""
    return _yvm.debug_breakpoints()


def stop():
    """Stops the command that calls; `breakpoint()` does this."""
    _yvm.debug_stop_here()


def name_command(text):
    """The file name under which the next command with exactly this text will run, so that breakpoints can be
    set in it beforehand."""
    name = _yvm.name_command(str(text))
    remember_lines(str(text), name)
    return name
