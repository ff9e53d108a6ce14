import _yvm
import pytest
from yvm import _errors


def raised(function):
    try:
        function()
    except BaseException as error:
        return error
    raise AssertionError("nothing was raised")


def divide():
    return 1 / 0


def test_an_exception_is_described():
    identifier, message, function, frames, cause = _errors.describe(raised(divide))
    assert (identifier, message, function, cause) == ("ZeroDivisionError", "division by zero", "divide", None)
    assert frames[-1] == (__file__, "divide", frames[-1][2], "return 1 / 0")
    assert [frame[1] for frame in frames] == ["raised", "divide"]


def test_an_interrupt_can_be_described_without_code_of_the_user():
    class Untold(Exception):
        def __str__(self):
            raise AssertionError("asked for its text")

    def interrupted():
        try:
            raise Untold
        except Untold:
            raise _yvm.Interrupt("stopped")

    identifier, message, function, frames, cause = _errors.describe_interrupt(raised(interrupted))
    assert identifier.endswith("Interrupt")
    assert (message, cause) == ("stopped", None)
    assert [frame[1] for frame in frames][0] == "raised"
    assert function == frames[-1][1]


def test_only_the_engines_own_interrupt_is_described_so():
    class Own(_yvm.Interrupt):
        pass

    for exception in (KeyboardInterrupt(), Own(), _yvm.Interrupt(object()), ValueError()):
        assert _errors.describe_interrupt(exception) is None


def test_the_engines_own_frames_are_left_out():
    code = compile("def call(f): f()", "<yvm._names>", "exec")
    names = {}
    exec(code, names)
    frames = _errors.describe(raised(lambda: names["call"](divide)))[3]
    assert "call" not in [frame[1] for frame in frames]


def test_types_outside_the_builtins_are_qualified():
    class Inner(Exception):
        pass

    assert _errors.identifier(Inner) == f"{__name__}.{Inner.__qualname__}"
    assert _errors.identifier(ValueError) == "ValueError"


def test_causes_follow_the_rules_of_a_traceback():
    def explicit():
        try:
            divide()
        except ZeroDivisionError as error:
            raise ValueError("v") from error

    def implicit():
        try:
            explicit()
        except ValueError:
            raise KeyError("k")

    described = _errors.describe(raised(implicit))
    assert described[0] == "KeyError"
    assert described[4][0] == "ValueError"
    assert described[4][4][0] == "ZeroDivisionError"
    assert described[4][4][4] is None


def test_a_chain_is_bounded():
    error = ValueError(0)
    for i in range(1000):
        following = ValueError(i)
        following.__context__ = error
        error = following
    depth = 0
    described = _errors.describe(error)
    while described is not None:
        depth += 1
        described = described[4]
    assert depth == _errors.MAX_CAUSES + 1


def test_the_middle_of_a_deep_stack_is_left_out():
    def endless():
        endless()

    frames = _errors.describe(raised(endless))[3]
    assert len(frames) == _errors.MAX_FRAMES + 1
    middle = frames[_errors.MAX_FRAMES // 2]
    assert middle[1].endswith(" more frames>")


def test_the_line_of_a_syntax_error_is_a_frame():
    error = raised(lambda: compile("a\nb = = c", "<command 9>", "exec"))
    assert _errors.describe(error)[3][-1][:3] == ("<command 9>", "<module>", 2)


@pytest.mark.parametrize("line", [-1, 2**70, "two"])
def test_an_impossible_line_of_a_syntax_error_is_unknown(line):
    error = SyntaxError("x", ("f", line, 1, "t"))
    assert _errors.describe(error)[3] == [("f", "<module>", 0, "")]


def test_a_file_that_changed_is_quoted_anew(tmp_path):
    file = tmp_path / "changing.py"

    def quoted(text):
        file.write_text(text)
        code = compile(text, str(file), "exec")
        return _errors.describe(raised(lambda: exec(code, {})))[3][-1][3]

    assert quoted("1 / 0\n") == "1 / 0"
    assert quoted("'longer' + 1\n") == "'longer' + 1"


def test_texts_that_cannot_be_made_do_not_hurt():
    class Mute(Exception):
        def __str__(self):
            raise ValueError

    assert _errors.message(Mute()) == "<Mute, which cannot be shown as text>"

    class BadNotes(Exception):
        __notes__ = 3

    assert _errors.message(BadNotes("b")) == "b\n<notes that cannot be shown as text>"


def test_only_the_engines_interrupt_is_one():
    assert _errors.is_interrupt(_yvm.Interrupt())
    assert not _errors.is_interrupt(KeyboardInterrupt())

    def clean_up():
        try:
            raise _yvm.Interrupt
        finally:
            divide()

    assert _errors.is_interrupt(raised(clean_up))
