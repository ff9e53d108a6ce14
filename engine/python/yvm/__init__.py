"""What code that runs in the engine can ask of the engine.

Every function here can also be called by clients, by its dotted name.
"""

from yvm import debug
from yvm._display import display, more
from yvm._figures import figure_format
from yvm._helpers import clc, complete, history, home, inspect, pause, queue, reset, state, who
from yvm._input import answer
from yvm._input import ask as input
from yvm._progress import progress

__all__ = [
    "answer",
    "clc",
    "complete",
    "debug",
    "display",
    "figure_format",
    "history",
    "home",
    "input",
    "inspect",
    "more",
    "pause",
    "progress",
    "queue",
    "reset",
    "state",
    "who",
]
