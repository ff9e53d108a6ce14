"""The file objects beneath `print`."""

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


def install():
    sys.stdout = TextOutput("<stdout>", _yvm.write_output, _yvm.flush_output)
    sys.stderr = TextOutput("<stderr>", _yvm.write_error, _yvm.flush_error)
    # Libraries print there when they find the other two broken; no descriptor of the server either.
    sys.__stdout__, sys.__stderr__ = sys.stdout, sys.stderr
