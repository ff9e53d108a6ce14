"""Lines that commands ask of the people who read their text."""

import builtins
import getpass
import io
import sys

import _yvm

_plain_input = builtins.input


def ask(prompt="", password=False):
    """Shows the prompt, asks for a line and waits for it. Commands run meanwhile that may run in a pause.

    EOFError is raised when nobody takes requests for input, or when the answer is the end of the input;
    RuntimeError when the run options of the command do not allow it to ask."""
    print(prompt, end="", flush=True)
    line = _yvm.ask_for_line(str(prompt), bool(password))
    if line is None:
        raise EOFError("the answer was the end of the input")
    return line


def answer(id, text):
    """Answers a request for input: `text` is one line, or None for the end of the input. ValueError is
    raised when no such request waits: the first answer counts."""
    if text is not None:
        if not isinstance(text, str):
            raise TypeError(f"an answer of type {type(text).__name__}: a text or None is accepted")
        text = text.removesuffix("\n").removesuffix("\r")
        if "\n" in text or "\r" in text:
            raise ValueError("an answer of several lines: one is accepted")
    _yvm.answer(str(id), text)


class Input(io.TextIOBase):
    """Standard input: each line that is read of it is asked for. It is never the terminal of the server,
    where a read would block the engine beyond everybody's reach."""

    encoding = "utf-8"
    errors = "surrogatepass"
    name = "<stdin>"
    mode = "r"

    def __init__(self):
        self._rest = ""
        self._rest_is_of = None

    def readable(self):
        return True

    def readline(self, size=-1):
        line = self._take_rest()
        if not line and size != 0:
            answer = _yvm.ask_for_line("", False)
            line = "" if answer is None else answer + "\n"
        return self._cut(line, size)

    def read(self, size=-1):
        text = ""
        while size is None or size < 0 or len(text) < size:
            line = self.readline()
            if not line:
                break
            text += line
        return self._cut(text, size)

    def close(self):
        """Does nothing: `exit()` closes standard input, and the engine lives on."""

    def _take_rest(self):
        rest, self._rest = self._rest, ""
        return rest if self._rest_is_of == _command() else ""

    def _cut(self, text, size):
        if size is None or size < 0 or len(text) <= size:
            return text
        # For the command that has read it: the next one is not to find it.
        self._rest, self._rest_is_of = text[size:], _command()
        return text[:size]


def _command():
    command = _yvm.current_command()
    return command.id if command is not None else None


def _input(prompt="", /):
    """Reads a line of standard input, which a person is asked for. Without the end of the line."""
    if isinstance(sys.stdin, Input):
        return ask(prompt)
    return _plain_input(prompt)


def _getpass(prompt="Password: ", stream=None):
    """Asks for a line that is not to be shown while it is typed."""
    return ask(prompt, password=True)


def install():
    sys.stdin = sys.__stdin__ = Input()
    _input.__name__ = _input.__qualname__ = "input"
    builtins.input = _input
    # Python's own reads the terminal of the process.
    getpass.getpass = _getpass
