import base64
import subprocess
import sys

import matplotlib.pyplot as plt
import pytest
from yvm import _display, _figures

_figures.install()


@pytest.fixture(autouse=True)
def figures(native):
    plt.switch_backend("module://yvm._figure_backend")
    native.values_wanted = True
    yield
    native.forbidden = ()
    plt.close("all")
    _figures.figure_format("png")


def images(native):
    return [data["image/png"] for data, _ in native.told_values]


def test_an_open_figure_is_sent_and_closed_when_the_command_ends(native):
    plt.plot([1, 2])
    assert native.told_values == []
    _figures.end_command(True)
    ((data, metadata),) = native.told_values
    assert base64.b64decode(data["image/png"]).startswith(b"\x89PNG")
    assert data["text/plain"] == "<Figure size 640x480 with 1 Axes>"
    assert metadata == {"image/png": {"width": 640, "height": 480}}
    assert plt.get_fignums() == [] == _figures.opened


def test_figures_come_in_the_order_in_which_they_were_opened(native):
    for size in ((3, 1), (1, 2), (2, 3)):
        plt.figure(figsize=size, dpi=100).add_subplot()
    _figures.end_command(True)
    assert [metadata["image/png"]["width"] for _, metadata in native.told_values] == [300, 100, 200]


def test_an_empty_figure_and_one_that_was_closed_are_not_sent(native):
    plt.figure()
    plt.plot([1])
    plt.close()
    _figures.end_command(True)
    assert native.told_values == []


def test_a_figure_that_is_displayed_is_sent_again_only_if_it_changed(native, capsys):
    figure, axes = plt.subplots()
    _display.display(figure)
    assert capsys.readouterr().out == "<Figure size 640x480 with 1 Axes>\n"
    other, _ = plt.subplots(2)
    _display.display(other)
    axes.plot([1, 2])
    assert len(native.told_values) == 2
    _figures.end_command(True)
    first, _, last = images(native)
    assert first != last


def test_a_figure_can_be_displayed_when_it_has_been_closed(native):
    figure, axes = plt.subplots()
    _figures.end_command(True)
    axes.plot([1, 2])
    _display.display_hook(figure)
    assert len(set(images(native))) == 2


@pytest.mark.parametrize("take_up", [lambda axes: plt.sca(axes), lambda axes: plt.figure(axes.figure)])
def test_a_closed_figure_that_is_plotted_into_again_is_sent_and_closed_again(native, take_up):
    figure, axes = plt.subplots()
    _figures.end_command(True)
    native.command = "another command"
    plt.figure(figsize=(1, 1)).text(0, 0, "of the same number")
    take_up(axes)
    plt.plot([1, 2])
    assert plt.gcf() is figure
    _figures.end_command(True)
    assert [metadata["image/png"]["width"] for _, metadata in native.told_values] == [640, 100, 640]
    assert len(set(images(native))) == 3
    assert plt.get_fignums() == [] == _figures.opened
    take_up(axes)
    plt.plot([2, 1])
    plt.show()
    assert len(native.told_values) == 4
    assert plt.get_fignums() == []


def test_a_closed_figure_is_taken_up_by_those_who_may_draw_only(native):
    _, axes = plt.subplots()
    _figures.end_command(True)
    native.forbidden = ("figures",)
    with pytest.raises(RuntimeError, match="may not draw figures"):
        plt.sca(axes)
    assert plt.get_fignums() == [] == _figures.opened


def test_show_sends_and_closes(native):
    plt.plot([1])
    plt.show()
    plt.plot([1, 2])
    plt.show()
    _figures.end_command(True)
    assert len(set(images(native))) == 2


def test_a_pause_sends_what_changed_and_goes_on(native):
    (line,) = plt.plot([1, 2])
    for value in (1, 3):
        line.set_ydata([value, 2])
        plt.pause(0.5)
    plt.pause(0.25)
    assert len(native.told_values) == 2
    assert native.paused[-3:] == [0.5, 0.5, 0.25]
    _figures.end_command(True)
    assert len(native.told_values) == 2


def test_nothing_is_drawn_for_nobody(native, monkeypatch):
    native.values_wanted = False
    plt.plot([1])
    monkeypatch.setattr(_figures, "render", lambda figure: pytest.fail("drawn"))
    _figures.end_command(True)
    assert plt.get_fignums() == []


def test_the_figures_of_a_stopped_command_are_closed(native):
    plt.plot([1])
    _figures.end_command(False)
    assert native.told_values == []
    assert plt.get_fignums() == []


def test_a_figure_that_cannot_be_drawn_is_told_and_keeps_no_other(native, capsys):
    plt.figure().text(0.5, 0.5, "$\\nothing$")
    plt.figure().text(0.5, 0.5, "fine")
    _figures.end_command(True)
    errors = capsys.readouterr().err
    assert errors.startswith("figure 1 could not be drawn:\nTraceback")
    assert "nothing" in errors
    assert len(native.told_values) == 1
    assert plt.get_fignums() == []


def test_a_query_leaves_the_figures_of_the_command_beneath_alone(native, monkeypatch):
    plt.plot([1])
    beneath = native.command
    monkeypatch.setattr(native, "running", lambda: ["1:1", "1:2"])
    native.command = "a query"
    plt.figure(figsize=(1, 1)).text(0, 0, "q")
    _figures.end_command(True)
    assert len(native.told_values) == 1
    assert len(plt.get_fignums()) == 1
    native.command = beneath
    _figures.end_command(True)
    assert len(native.told_values) == 2


def test_figures_that_are_left_over_go_with_the_next_command_and_not_by_its_show(native):
    plt.plot([1])
    native.command = "another command"
    plt.figure(figsize=(1, 1)).text(0, 0, "shown")
    plt.show()
    assert [metadata["image/png"]["width"] for _, metadata in native.told_values] == [100]
    _figures.end_command(True)
    assert [metadata["image/png"]["width"] for _, metadata in native.told_values] == [100, 640]


def test_without_the_capability_drawing_is_an_error(native):
    native.forbidden = ("figures",)
    with pytest.raises(RuntimeError, match='may not draw figures: its run options give it no "figures"'):
        plt.plot([1])
    assert plt.get_fignums() == [] == _figures.opened
    figure = plt.matplotlib.figure.Figure()
    with pytest.raises(RuntimeError):
        _display.display(figure)


def test_figures_are_sent_as_svg_on_demand(native):
    assert _figures.figure_format("svg") == "png"
    assert _figures.figure_format() == "svg"
    plt.plot([1])
    _figures.end_command(True)
    ((data, metadata),) = native.told_values
    assert "<svg" in data["image/svg+xml"]
    assert metadata == {"image/svg+xml": {"width": 640, "height": 480}}
    with pytest.raises(ValueError, match="figures are sent as png or svg, not as 'gif'"):
        _figures.figure_format("gif")


def test_a_figure_that_is_cut_tells_the_size_of_its_image(native):
    with plt.rc_context({"savefig.bbox": "tight"}):
        plt.plot([1])
        _figures.end_command(True)
    ((data, metadata),) = native.told_values
    assert metadata["image/png"]["width"] < 640
    assert base64.b64decode(data["image/png"]).endswith(b"IEND\xaeB`\x82")


def test_nobody_can_click_on_a_figure():
    with pytest.raises(NotImplementedError, match="no window that could be clicked on"):
        plt.ginput(timeout=0)


def run(source, **environment):
    """Runs a source in a Python of its own that finds the engine's side, and returns what it printed."""
    prelude = (
        "import sys, types; sys.path[:0] = " + repr(sys.path[:2]) + "\n"
        "sys.modules['_yvm'] = types.ModuleType('_yvm')\n"
        "from yvm import _figures; _figures.install()\n"
    )
    done = subprocess.run(
        [sys.executable, "-c", prelude + source],
        capture_output=True,
        text=True,
        env={"PATH": "/usr/bin:/bin", **environment},
    )
    assert done.stderr == ""
    return done.stdout.strip()


def test_matplotlib_is_loaded_by_those_who_use_it_and_then_draws_for_the_engine():
    assert run("print('matplotlib' in sys.modules)") == "False"
    assert run("import matplotlib; print(matplotlib.rcParams['backend'])") == "module://yvm._figure_backend"
    assert run("import os, matplotlib; print('MPLBACKEND' in os.environ)") == "False"


def test_a_backend_of_the_environment_is_kept():
    assert run("import matplotlib; print(matplotlib.rcParams['backend'])", MPLBACKEND="svg") == "svg"
