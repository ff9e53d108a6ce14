"""What code that runs in the engine can ask of the engine.

Every function here can also be called by clients, by its dotted name.
"""

from yvm._display import more
from yvm._helpers import complete, history, inspect, pause, queue, reset, state, who

__all__ = ["complete", "history", "inspect", "more", "pause", "queue", "reset", "state", "who"]
