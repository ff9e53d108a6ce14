"""Tracebacks whose files are links, for destinations that can show them."""

import functools
import inspect
import io
import re
import sys
import threading
import traceback
import urllib.parse

import _yvm

from yvm._streams import TextOutput

_PLACE_IN_A_FILE = re.compile(r'(?m)^( *)(File "(/[^"\n]*)", line (\d+))')


def install():
    traceback.print_exception = _linking_print_exception(traceback.print_exception)
    threading.excepthook = _linking_thread_hook(threading.excepthook)


def link(text):
    """The text of a traceback with a hyperlink about each place in a file, by the escape sequence of
    terminals (OSC 8): `file:///path/to/file.py#L12`. Nothing in a file's name can end the sequence."""
    return _PLACE_IN_A_FILE.sub(_linked_place, text)


def _linked_place(match):
    indentation, place, path, line = match.groups()
    # Names of files that are no UTF-8 come as lone surrogates.
    address = "file://" + urllib.parse.quote(path, errors="surrogateescape") + "#L" + line
    return f"{indentation}\x1b]8;;{address}\x1b\\{place}\x1b]8;;\x1b\\"


def _is_wanted():
    return isinstance(sys.stderr, TextOutput) and _yvm.links_tracebacks()


def _linking_print_exception(plain):
    signature = inspect.signature(plain)

    @functools.wraps(plain)
    def print_exception(*args, **keywords):
        call = signature.bind(*args, **keywords)
        if call.arguments.get("file") is not None or not _is_wanted():
            plain(*args, **keywords)
            return
        call.arguments["file"] = text = io.StringIO()
        plain(*call.args, **call.kwargs)
        sys.stderr.write(link(text.getvalue()))

    return print_exception


def _linking_thread_hook(plain):
    def excepthook(args, /):
        if args.exc_type is SystemExit or not _is_wanted():
            plain(args)
            return
        name = args.thread.name if args.thread is not None else threading.get_ident()
        lines = traceback.format_exception(args.exc_type, args.exc_value, args.exc_traceback)
        sys.stderr.write(link(f"Exception in thread {name}:\n{''.join(lines)}"))

    return excepthook
