"""Tells which names of the workspace appeared, changed or went.

The engine calls `begin` and `end` about each command of a prompt that somebody wants to be told of.
"""

import dis
import sys
import types
import weakref

import _yvm

from yvm._helpers import variables

# Values that keep nothing else alive. They are known by themselves, unless they are large: a new one often
# stands where the old one stood. Their types by identity, as a type may hash and compare as its metaclass likes.
_ATOMS = frozenset(map(id, (bool, int, float, complex, str, bytes, type(None))))
_MAX_ATOM_BYTES = 10_000

_STORES = frozenset(dis.opmap[name] for name in ("STORE_NAME", "STORE_GLOBAL"))

_NEW = object()

# By name, by what the value is known that was there at the end of the last command. None when nobody was to
# be told then.
_known = None
# What the lines of the running commands assign to.
_assigned = set()


class _Weak(weakref.ref):
    """Knows a value without keeping it alive."""

    __slots__ = ()


class _Address(int):
    """Knows where a value stands. Another may come to stand there when it has gone."""


def begin():
    """A command begins, and somebody wants to be told what it changes."""
    global _known
    if _known is None:
        _known = {name: _knowledge_of(value) for name, value in variables().items()}


def note_assignments(code):
    """Notes the names that the code of a command assigns to. Returns whether there are any."""
    operations = code.co_code
    index = 0
    for position in range(0, len(operations), 2):
        index = index << 8 | operations[position + 1]
        if operations[position] == dis.EXTENDED_ARG:
            continue
        if operations[position] in _STORES:
            _assigned.add(code.co_names[index])
        index = 0
    for constant in code.co_consts:
        if isinstance(constant, types.CodeType):
            note_assignments(constant)
    return bool(_assigned)


def end():
    """Tells what has changed since the last command. Who began to listen while this one ran is told of all
    names, as if they had just appeared."""
    global _known
    before, now = _known or {}, {}
    appeared, changed = [], []
    for name, value in variables().items():
        known = before.get(name, _NEW)
        if known is value or _is_known_by(known, name, value):
            now[name] = known
        else:
            now[name] = _knowledge_of(value)
            (appeared if known is _NEW else changed).append(name)
    _known = now
    _assigned.clear()
    gone = before.keys() - now.keys()
    if appeared or changed or gone:
        _yvm.tell_workspace(sorted(appeared), sorted(changed), sorted(gone))


def forget():
    """Nobody wants to be told any more."""
    global _known
    _known = None
    _assigned.clear()


def _knowledge_of(value):
    if id(type(value)) in _ATOMS and sys.getsizeof(value) <= _MAX_ATOM_BYTES:
        return value
    try:
        return _Weak(value)
    except TypeError:
        return _Address(id(value))


def _is_known_by(known, name, value):
    if name in _assigned:
        return False
    return known() is value if type(known) is _Weak else type(known) is _Address and known == id(value)
