import base64
from unittest import mock

import numpy
import pandas
from yvm import _media


def test_builtins_and_arrays_are_their_text():
    for value in (1, "a", [1], {"a": 1}, numpy.arange(3), numpy.float64(1)):
        assert _media.bundle(value, "text") == ({"text/plain": "text"}, {})


def test_an_object_says_itself_in_its_media_types():
    class Rich:
        def _repr_html_(self):
            return "<b>x</b>"

        def _repr_svg_(self):
            return "<svg/>"

        def _repr_png_(self):
            return b"\x89PNG", {"width": 2, "height": 3}

        def _repr_json_(self):
            return {"a": [1]}

        def _repr_latex_(self):
            return None

    assert _media.bundle(Rich(), "rich") == (
        {
            "text/plain": "rich",
            "text/html": "<b>x</b>",
            "image/svg+xml": "<svg/>",
            "image/png": base64.b64encode(b"\x89PNG").decode(),
            "application/json": {"a": [1]},
        },
        {"image/png": {"width": 2, "height": 3}},
    )


def test_a_bundle_of_an_object_goes_before_its_single_methods():
    class Both:
        def _repr_mimebundle_(self, include=None, exclude=None):
            return (
                {"text/html": "bundle", "application/x+json": [1], "text/plain": "other"},
                {"text/html": {"isolated": True}, "image/gif": {"width": 1}},
            )

        def _repr_html_(self):
            return "single"

        def _repr_markdown_(self):
            return "*m*"

    assert _media.bundle(Both(), "printed") == (
        {
            "text/plain": "printed",
            "text/html": "bundle",
            "application/x+json": [1],
            "text/markdown": "*m*",
        },
        {"text/html": {"isolated": True}},
    )


def test_a_method_that_fails_is_told_and_the_others_count(capsys):
    class Broken:
        def _repr_html_(self):
            raise ValueError("no html")

        def _repr_markdown_(self):
            raise NotImplementedError

        def _repr_svg_(self):
            return 3

        def _repr_latex_(self):
            return "$x$"

    data, _ = _media.bundle(Broken(), "broken")
    assert data == {"text/plain": "broken", "text/latex": "$x$"}
    errors = capsys.readouterr().err
    assert "ValueError: no html" in errors
    assert "image/svg+xml of a displayed value is left out: it is of type int, and a str is accepted" in errors


def test_what_is_no_json_is_left_out(capsys):
    loop = []
    loop.append(loop)
    deep = []
    for _ in range(100_000):
        deep = [deep]

    class Wrong:
        def _repr_mimebundle_(self, include=None, exclude=None):
            return {"application/json": loop, "x/y+json": deep}

        def _repr_html_(self):
            return "html", {"width": {1}}

    assert _media.bundle(Wrong(), "wrong") == ({"text/plain": "wrong", "text/html": "html"}, {})
    errors = capsys.readouterr().err
    assert "application/json of a displayed value is left out: Circular reference detected" in errors
    assert "x/y+json of a displayed value is left out: maximum recursion depth exceeded" in errors
    assert "metadata of a displayed value is left out: Object of type set is not JSON" in errors


def test_json_is_what_its_readers_will_see():
    class Json:
        def _repr_json_(self):
            return {1: (True, None, 2**70)}

    assert _media.bundle(Json(), "")[0]["application/json"] == {"1": [True, None, 2**70]}


def test_classes_and_objects_with_every_attribute_are_their_text(capsys):
    class Rich:
        def _repr_html_(self):
            return "x"

    for value in (Rich, mock.MagicMock()):
        assert _media.bundle(value, "text") == ({"text/plain": "text"}, {})
    assert capsys.readouterr().err == ""


def test_a_table_of_pandas_is_html_and_text():
    table = pandas.DataFrame({"a": [1, 2]})
    data, metadata = _media.bundle(table, repr(table))
    assert data.keys() == {"text/plain", "text/html"}
    assert "<table" in data["text/html"] and "<td>2</td>" in data["text/html"]
    assert metadata == {}


def test_an_object_that_raises_for_each_attribute_is_its_text_and_told_once(capsys):
    class Unbound:
        def __getattr__(self, name):
            raise RuntimeError("there is nothing behind this proxy")

        @property
        def __class__(self):
            raise RuntimeError("there is nothing behind this proxy")

    assert _media.bundle(Unbound(), "text") == ({"text/plain": "text"}, {})
    assert capsys.readouterr().err.count("nothing behind this proxy\n") == 1


def test_an_object_of_a_type_that_cannot_be_hashed_is_its_text():
    class Meta(type):
        def __eq__(self, other):
            return True

    class Odd(metaclass=Meta):
        __module__ = []

        def _repr_html_(self):
            return "<b>odd</b>"

    assert _media.bundle(Odd(), "text") == ({"text/html": "<b>odd</b>", "text/plain": "text"}, {})
