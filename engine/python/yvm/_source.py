"""Turns the text of one command into code."""

import __future__
import ast
import collections
import io
import linecache
import re

_FUTURE_FLAGS = 0
for _feature in __future__.all_feature_names:
    _FUTURE_FLAGS |= getattr(__future__, _feature).compiler_flag

# Functions that a command defined outlive it, and their tracebacks and `inspect.getsource` want its
# lines; but a server that runs for months must not keep the text of every command.
KEPT_SOURCES = 1000

# A second statement behind the first, on its line or the next, or a backslash.
_MORE_THAN_AN_EXPRESSION = re.compile(r"[;\\\f]|[\r\n](?!\Z)")

_kept_names = collections.deque()


def remember_lines(text, filename):
    """Lets tracebacks quote the lines of a source that is in no file."""
    if filename not in linecache.cache:
        _kept_names.append(filename)
    # Without a modification time the entry survives `linecache.checkcache`.
    linecache.cache[filename] = (len(text), None, _lines(text), filename)
    if len(_kept_names) > KEPT_SOURCES:
        linecache.cache.pop(_kept_names.popleft(), None)


def compile_command(text, filename):
    """Returns `(body, last, shown)`: the code of all statements but a last bare expression, the code of
    that expression, and whether its value is to be displayed. Either code may be None.

    Everything is compiled before anything runs, so a command with a syntax error has no effect at all.
    """
    remember_lines(text, filename)
    if _may_be_one_expression(text):
        # Most commands of a page are one; by the tree they would take three times as long.
        try:
            return None, compile(text, filename, "eval", dont_inherit=True), True
        except SyntaxError:
            pass  # It is something else, or wrong: the tree tells.
    # Not by `ast.parse`, which would put a frame of its own into the traceback of a syntax error.
    tree = compile(text, filename, "exec", ast.PyCF_ONLY_AST, dont_inherit=True)
    last = tree.body.pop() if tree.body and isinstance(tree.body[-1], ast.Expr) else None
    body_code = compile(tree, filename, "exec", dont_inherit=True) if tree.body else None
    if last is None:
        return body_code, None, False
    flags = body_code.co_flags & _FUTURE_FLAGS if body_code is not None else 0
    last_code = compile(ast.Expression(last.value), filename, "eval", flags=flags, dont_inherit=True)
    return body_code, last_code, not _ends_in_semicolon(text, last)


def _may_be_one_expression(text):
    """Whether the text is worth compiling as an expression. Where that goes well it must mean the same
    as by the tree: an expression may be indented, a command not. Where it fails nothing may show of the
    attempt: backslashes can make the parser warn."""
    return not text[:1].isspace() and _MORE_THAN_AN_EXPRESSION.search(text) is None


def _lines(text):
    """The lines as the parser counts them, which knows fewer ends of line than `str.splitlines`."""
    if "\n" not in text and "\r" not in text:
        return [text] if text else []
    return io.StringIO(text, newline=None).readlines()


def _ends_in_semicolon(text, last):
    """Whether the text goes on with `;` after its last statement: blanks, a line continued with a
    backslash, and comments are all that may stand around it."""
    if ";" not in text:
        return False
    lines = _lines(text)
    # The parser counts the columns in bytes of UTF-8.
    rest_of_line = lines[last.end_lineno - 1].encode("utf-8")[last.end_col_offset :].decode("utf-8")
    rest = "".join([rest_of_line, *lines[last.end_lineno :]])
    return rest.lstrip(" \t\f\\\n").startswith(";")
