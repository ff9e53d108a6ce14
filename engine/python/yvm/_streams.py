"""The file objects beneath `print` and `input`."""

import io
import sys

import _yvm


class TextOutput(io.TextIOBase):
    """Text for whoever reads the running command. Writing never fails and never blocks on a reader."""

    encoding = "utf-8"
    errors = "surrogatepass"
    mode = "w"

    def __init__(self, name, write, flush):
        self.name = name
        # Functions of the engine as attributes of the object: a write costs no Python call.
        self.write = write
        self.flush = flush

    def writable(self):
        return True

    def close(self):
        """Does nothing: the stream belongs to every command."""


class NoInput(io.TextIOBase):
    """Standard input of a process whose users sit elsewhere. It is never the terminal of the server,
    where a read would block the engine beyond everybody's reach."""

    encoding = "utf-8"
    name = "<stdin>"
    mode = "r"

    def readable(self):
        return True

    def readline(self, size=-1):
        raise EOFError("the engine has no input to read: nobody answers requests for a line")

    def read(self, size=-1):
        return self.readline()

    def __next__(self):
        return self.readline()

    def close(self):
        """Does nothing: `exit()` closes standard input, and the engine lives on."""


def install():
    sys.stdout = TextOutput("<stdout>", _yvm.write_output, _yvm.flush_output)
    sys.stderr = TextOutput("<stderr>", _yvm.write_error, _yvm.flush_error)
    sys.stdin = NoInput()
    # Libraries print there when they find the other two broken; no descriptor of the server either.
    sys.__stdout__, sys.__stderr__, sys.__stdin__ = sys.stdout, sys.stderr, sys.stdin
