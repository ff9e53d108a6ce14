import linecache
import warnings

import pytest
from yvm import _source


def run(text):
    """The names that the command sets, and what it would display."""
    body, last, shown = _source.compile_command(text, "<command 1>")
    names = {}
    if body is not None:
        exec(body, names)
    value = eval(last, names) if last is not None else None
    return names, value if shown else "nothing"


@pytest.mark.parametrize("text", ["1", "a = 0\n1", "a = 0; 1", "(\n1\n)", "1  # comment", "1\\\n\n", "1\r\n# end"])
def test_a_last_bare_expression_is_shown(text):
    assert run(text)[1] == 1


@pytest.mark.parametrize(
    "text",
    ["1;", "1 ;", "1; # comment", "(1)\\\n;", "1;\n\n# a\n  # b", "1\t;\f", "'äö€😀';", "a = 1; a;", "1;\r\n"],
)
def test_a_semicolon_at_the_end_suppresses(text):
    assert run(text)[1] == "nothing"


@pytest.mark.parametrize("text", ["';'", "1 # ;", "1\n# ;", "a = 2; 1", "'a' ';'", "'''\n;'''"])
def test_a_semicolon_elsewhere_does_not(text):
    assert run(text)[1] != "nothing"


@pytest.mark.parametrize("text", ["", "\n", "# only", "a = 1", "for i in 1, 2: i", "def f(): 1"])
def test_what_is_no_expression_shows_nothing(text):
    assert run(text)[1] == "nothing"


@pytest.mark.parametrize("text", [" 1", "\t1", "\n 1", "1\n 1"])
def test_an_indented_expression_is_an_error_as_any_indented_command(text):
    with pytest.raises(IndentationError):
        _source.compile_command(text, "<command 6>")


def test_a_syntax_error_has_no_context():
    with pytest.raises(SyntaxError) as caught:
        _source.compile_command("1 +", "<command 7>")
    assert caught.value.__context__ is None


@pytest.mark.parametrize("text", ["a = 1 is 1", "1 is 1", "a = '\\d'", "'\\d'; a = 1", "1 is 1\n"])
def test_the_parser_warns_once(text):
    with warnings.catch_warnings(record=True) as caught:
        warnings.simplefilter("always")
        _source.compile_command(text, "<command 8>")
    assert len(caught) == 1
    assert caught[0].filename == "<command 8>"


def test_nothing_runs_before_everything_compiles():
    with pytest.raises(SyntaxError) as caught:
        _source.compile_command("a = 1\nreturn a", "<command 2>")
    assert caught.value.filename == "<command 2>"
    assert caught.value.lineno == 2


def test_a_syntax_error_has_no_frame_of_the_parser():
    with pytest.raises(SyntaxError) as caught:
        _source.compile_command("a = = 1", "<command 3>")
    frames = []
    traceback = caught.value.__traceback__
    while traceback is not None:
        frames.append(traceback.tb_frame.f_code.co_filename)
        traceback = traceback.tb_next
    assert not any(name.endswith("ast.py") for name in frames)


def test_the_lines_of_a_command_can_be_quoted():
    _source.compile_command("a = 'x\u2028y'\nb = 2", "<command 4>")
    linecache.checkcache()
    assert linecache.getline("<command 4>", 2) == "b = 2"


def test_the_lines_of_old_commands_are_forgotten():
    _source.compile_command("first", "<command first>")
    for i in range(_source.KEPT_SOURCES):
        _source.compile_command("1", f"<command later {i}>")
    assert "<command first>" not in linecache.cache
    assert "<command later 0>" in linecache.cache


def test_a_future_import_holds_for_the_last_expression():
    body, last, shown = _source.compile_command(
        "from __future__ import annotations\nf", "<command 5>"
    )
    assert last.co_flags & _source._FUTURE_FLAGS == body.co_flags & _source._FUTURE_FLAGS != 0
