"""Says a value in the media types that it knows of itself."""

import base64
import json
import sys
import traceback

from yvm import _figures
from yvm._helpers import is_a

# The methods by which objects show themselves in notebooks.
_METHODS = {
    "text/html": "_repr_html_",
    "text/markdown": "_repr_markdown_",
    "text/latex": "_repr_latex_",
    "image/svg+xml": "_repr_svg_",
    "image/png": "_repr_png_",
    "image/jpeg": "_repr_jpeg_",
    "application/pdf": "_repr_pdf_",
    "application/json": "_repr_json_",
}
# Whose objects have none of these methods.
_PLAIN_MODULES = ("builtins", "numpy")


def bundle(value, text):
    """Returns `(data, metadata)`, both by media type. `text` is the value as it is printed, and its
    `text/plain` whatever else it says of itself."""
    data, metadata = {}, {}
    if _figures.is_figure(value):
        data, metadata = _figures.render(value)
    elif type(value).__module__ not in _PLAIN_MODULES and not is_a(value, type):
        data, metadata = _by_methods(value)
    data["text/plain"] = text
    metadata.pop("text/plain", None)
    return data, metadata


def _by_methods(value):
    data, metadata = {}, {}
    if _is_beyond_asking(value):
        return data, metadata
    bundle, its_metadata = _split(_call(value, "_repr_mimebundle_", include=None, exclude=None))
    if isinstance(bundle, dict):
        for media_type, content in bundle.items():
            _add(data, str(media_type), content)
        metadata = {str(media_type): _checked("metadata", its) for media_type, its in its_metadata.items()}
    for media_type, name in _METHODS.items():
        if media_type not in data:
            content, its_metadata = _split(_call(value, name))
            _add(data, media_type, content)
            metadata[media_type] = _checked("metadata", its_metadata)
    return data, {key: its for key, its in metadata.items() if its and key in data}


def _is_beyond_asking(value):
    """Whether the object has whatever attribute it is asked for, so that none means anything, or raises for each
    of them, as proxies do behind which there is nothing."""
    try:
        return getattr(value, "_yvm_has_every_attribute_", None) is not None
    except Exception as error:
        traceback.print_exception(error)
        return True


def _call(value, name, **arguments):
    """What the method returns; None if there is none, or it fails. That is told on standard error, as the
    other media types are good all the same."""
    try:
        method = getattr(value, name, None)
        return method(**arguments) if callable(method) else None
    except NotImplementedError:
        return None
    except Exception as error:
        traceback.print_exception(error)
        return None


def _split(returned):
    """The methods return their content, or a tuple of it and its metadata."""
    if isinstance(returned, tuple) and len(returned) == 2 and isinstance(returned[1], dict):
        return returned
    return returned, {}


def _add(data, media_type, content):
    if isinstance(content, (bytes, bytearray)):
        content = base64.b64encode(content).decode("ascii")
    if media_type == "application/json" or media_type.endswith("+json"):
        content = _checked(media_type, content)
    elif not isinstance(content, (str, type(None))):
        _leave_out(media_type, f"it is of type {type(content).__qualname__}, and a str is accepted")
        content = None
    if content is not None:
        data[media_type] = content


def _checked(media_type, content):
    """The content as plain values, which is how whoever reads the JSON will see it; None if it is no JSON."""
    try:
        return json.loads(json.dumps(content))
    except (TypeError, ValueError, RecursionError) as error:
        _leave_out(media_type, str(error))
        return None


def _leave_out(media_type, reason):
    print(f"{media_type} of a displayed value is left out: {reason}", file=sys.stderr)
