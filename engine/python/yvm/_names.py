"""Finds the function that a client calls by name."""

import __main__
import builtins
import importlib


def resolve(name):
    """Looks a dotted name up in the workspace, then among the builtins, then as an import.

    Raises NameError when it is nowhere and TypeError when it is there and cannot be called. An error of
    a module while it is imported is raised as it is.
    """
    parts = name.split(".")
    if not all(part.isidentifier() for part in parts):
        raise NameError(f"{name!r} is no function name: names joined with dots are accepted")
    for namespace in (vars(__main__), vars(builtins)):
        if parts[0] in namespace:
            found, value = _attribute(namespace[parts[0]], parts[1:])
            if found:
                return _checked(name, value)
    found, value = _imported(parts)
    if found:
        return _checked(name, value)
    raise NameError(
        f"no function {name!r}: it is not in the workspace, not a builtin, and cannot be imported"
    )


def _imported(parts):
    # A name of one part cannot name a function that is imported, only a module.
    for length in range(len(parts) - 1, 0, -1):
        module_name = ".".join(parts[:length])
        try:
            module = importlib.import_module(module_name)
        except ModuleNotFoundError as error:
            # Missing is this module or a package above it: try a shorter one. Missing is what the
            # module itself wants: that is the module's error.
            if error.name is not None and (module_name + ".").startswith(error.name + "."):
                continue
            raise
        return _attribute(module, parts[length:])
    return False, None


def _attribute(value, parts):
    for part in parts:
        try:
            value = getattr(value, part)
        except AttributeError:
            return False, None
    return True, value


def _checked(name, value):
    if not callable(value):
        raise TypeError(f"{name!r} is a {type(value).__name__}, which cannot be called")
    return value
