import math
import os.path

import pytest
from yvm import _names


def test_the_workspace_comes_first_then_builtins_then_imports(workspace):
    assert _names.resolve("len") is len
    workspace["len"] = abs
    assert _names.resolve("len") is abs
    assert _names.resolve("math.hypot") is math.hypot
    assert _names.resolve("os.path.basename") is os.path.basename


def test_a_name_of_the_workspace_without_the_attribute_hides_no_module(workspace):
    workspace["math"] = 3
    assert _names.resolve("math.hypot") is math.hypot


def test_classes_and_their_attributes_can_be_called(workspace):
    assert _names.resolve("collections.OrderedDict.fromkeys") == __import__("collections").OrderedDict.fromkeys


@pytest.mark.parametrize("name", ["nowhere", "math.nothing", "no_such_package.f", "os.path.nothing.more", "os"])
def test_what_is_nowhere_raises_name_error(workspace, name):
    with pytest.raises(NameError, match=f"no function '{name}'"):
        _names.resolve(name)


@pytest.mark.parametrize("name", ["", ".", "a..b", "1a", "a b", "f()", "a."])
def test_what_is_no_name_is_refused(workspace, name):
    with pytest.raises(NameError, match="is no function name"):
        _names.resolve(name)


def test_what_cannot_be_called_is_refused(workspace):
    workspace["value"] = 3
    with pytest.raises(TypeError, match="'value' is a int, which cannot be called"):
        _names.resolve("value")


def test_an_error_of_a_module_is_shown(workspace, tmp_path, monkeypatch):
    (tmp_path / "needs_another.py").write_text("import the_other_one")
    monkeypatch.syspath_prepend(tmp_path)
    with pytest.raises(ModuleNotFoundError, match="the_other_one"):
        _names.resolve("needs_another.f")
