"""Live helpers, which a client may call in any mode so that its page stays alive."""

import __main__
import builtins
import collections
import inspect as _inspect
import keyword
import sys
import types

import _yvm

_HISTORY_LENGTH = 10_000
_history = collections.deque(maxlen=_HISTORY_LENGTH)
_TEXT_LENGTH = 1000
_MAX_MATCHES = 500


def remember(command):
    """Called by the engine for each command that a person typed."""
    _history.append(command)


def history(count=None):
    """The commands that people typed, oldest first; the last `count` of them if that is given. The
    engine keeps the last 10,000."""
    commands = list(_history)
    if count is None:
        return commands
    count = int(count)
    return commands[-count:] if count > 0 else []


def pause(seconds=0.0):
    """Waits, and lets commands run meanwhile whose options allow it (`DEQUEUE_AT_PAUSE`,
    `DEQUEUE_AT_PPE`). Only for the engine's own thread: elsewhere RuntimeError is raised."""
    seconds = float(seconds)
    if not seconds >= 0.0:
        raise ValueError(f"a pause of {seconds} seconds: zero or a positive number is accepted")
    _yvm.pause(seconds)


def state():
    """What the engine does: `running` are the identities of the running commands, outermost first, this
    query last; `waiting` is the number of commands in the queue; `prompt` is the state that the latest
    PromptEvent told, or would have; `inputs` are the requests for input that wait for an answer: `id`,
    `prompt`, `password`."""
    return {
        "running": _yvm.running(),
        "waiting": len(_yvm.waiting()),
        "prompt": _yvm.prompt_state(),
        "inputs": _yvm.input_requests(),
    }


def clc():
    """Asks the pages that show this command's console to clear it."""
    _yvm.clear_console()


def home():
    """Asks the pages that show this command's console to begin again at its top."""
    _yvm.home_cursor()


def queue():
    """The identities of the commands that wait, in the order of their arrival."""
    return _yvm.waiting()


def who():
    """The variables of the workspace, by name: `name`, `type`, `shape` (of arrays), `bytes` (the object
    itself, and an array's data) and whether it is `callable`. Modules and names with a leading
    underscore are left out."""
    return [_describe_variable(name, value) for name, value in sorted(variables().items())]


def describe_values(values):
    """As `who`, for the variables of a frame (None: of the workspace), each with its `text`."""
    names = variables() if values is None else values
    return [
        {**_describe_variable(name, value), "text": _representation(value)}
        for name, value in sorted(names.items())
        if not is_a(value, types.ModuleType)
        and not (name.startswith("__") and name.endswith("__"))
    ]


def reset():
    """Removes all names from the workspace, and returns how many there were."""
    names = list(variables(hidden=True))
    for name in names:
        del vars(__main__)[name]
    return len(names)


def inspect(name):
    """What is known of a name: `found`, and if so `type`, `text` (the start of its representation),
    `signature` and `documentation` (empty texts where there is none). Attributes are followed along
    dots without running properties."""
    found, value = _look_up(name)
    if not found:
        return {"found": False}
    try:
        signature = str(_inspect.signature(value)) if callable(value) else ""
    except (TypeError, ValueError):
        signature = ""
    return {
        "found": True,
        "type": type(value).__qualname__,
        "text": _representation(value),
        "signature": signature,
        "documentation": _inspect.getdoc(value) or "",
    }


def complete(text, cursor=None):
    """The names that may stand at the cursor, which counts characters (default: the end of the text).
    `matches` are the whole words, `start` and `end` say what they replace. No code of the user runs."""
    end = len(text) if cursor is None else max(0, min(int(cursor), len(text)))
    start = end
    while start > 0 and (text[start - 1].isidentifier() or text[start - 1].isdigit() or text[start - 1] == "."):
        start -= 1
    owner, dot, prefix = text[start:end].rpartition(".")
    if dot:
        found, value = _look_up(owner)
        names = _static_names(value) if found else ()
        start += len(owner) + 1
    else:
        names = {*vars(__main__), *vars(builtins), *keyword.kwlist}
    hidden = prefix.startswith("_")
    matches = sorted(
        name for name in names if name.startswith(prefix) and (hidden or not name.startswith("_"))
    )
    return {"matches": matches[:_MAX_MATCHES], "start": start, "end": end}


def variables(hidden=False):
    """Those of the workspace, by name. Modules and names with a leading underscore are `hidden`."""
    return {
        name: value
        for name, value in list(vars(__main__).items())
        if isinstance(name, str)
        and not (name.startswith("__") and name.endswith("__"))
        and (hidden or not (name.startswith("_") or is_a(value, types.ModuleType)))
    }


def is_a(value, kind):
    """As `isinstance`, without the `__class__` of a proxy: that is code of the user, and may raise."""
    return issubclass(type(value), kind)


def _describe_variable(name, value):
    numpy = sys.modules.get("numpy")
    is_array = numpy is not None and is_a(value, numpy.ndarray)
    try:
        size = sys.getsizeof(value)
    except Exception:  # `__sizeof__` is code of the user
        size = 0
    if is_array:
        size = max(size, value.nbytes)
    return {
        "name": name,
        "type": type(value).__qualname__,
        "shape": list(value.shape) if is_array else [],
        "bytes": size,
        "callable": callable(value),
    }


def _look_up(name):
    first, *rest = name.split(".")
    for namespace in (vars(__main__), vars(builtins)):
        if first in namespace:
            value = namespace[first]
            break
    else:
        return False, None
    for part in rest:
        try:
            value = _inspect.getattr_static(value, part)
        except AttributeError:
            return False, None
        if is_a(value, (classmethod, staticmethod)):
            value = value.__func__
    return True, value


def _static_names(value):
    names = set()
    if is_a(value, (types.ModuleType, type)):
        names.update(vars(value))
    else:
        try:
            names.update(object.__getattribute__(value, "__dict__"))
        except AttributeError:
            pass
    for kind in value.__mro__ if is_a(value, type) else type(value).__mro__:
        names.update(vars(kind))
    return {name for name in names if isinstance(name, str)}


def _representation(value):
    try:
        text = repr(value)
    except Exception as error:
        text = f"<{type(value).__qualname__}: its representation raised {type(error).__qualname__}>"
    return text if len(text) <= _TEXT_LENGTH else text[:_TEXT_LENGTH] + "..."
