"""The backend of matplotlib by which figures are sent to clients. Loaded by matplotlib."""

import _yvm
from matplotlib._pylab_helpers import Gcf
from matplotlib.backend_bases import FigureManagerBase
from matplotlib.backends.backend_agg import FigureCanvasAgg

from yvm import _figures


class FigureManager(FigureManagerBase):
    """A figure of pyplot, and the command that opened it."""

    def __init__(self, canvas, num):
        # Before there is anything of it.
        _figures.check_allowed()
        super().__init__(canvas, num)
        self.open()

    def open(self):
        """Called for each figure that becomes pyplot's current one, which may have been closed before."""
        if self not in _figures.opened:
            _figures.check_allowed()
            self.command = _yvm.current_command()
            _figures.opened.append(self)

    def show(self):
        _figures.send(self)

    def destroy(self):
        """Called by pyplot for a figure that is closed."""
        if self in _figures.opened:
            _figures.opened.remove(self)

    def close(self):
        Gcf.destroy(self)


_set_active = Gcf.set_active


def _open_and_set_active(manager):
    """Closed figures come back by `pyplot.sca(axes)` and `pyplot.figure(figure)`, of which no backend is told.
    Unnoticed, such a figure would take in whatever later commands plot, and never be sent."""
    if isinstance(manager, FigureManager):
        manager.open()
    _set_active(manager)


Gcf.set_active = staticmethod(_open_and_set_active)


class FigureCanvas(FigureCanvasAgg):
    manager_class = FigureManager

    def draw_idle(self, *args, **kwargs):
        """Does nothing: there is no window to be kept up to date."""

    def start_event_loop(self, timeout=0):
        """`pyplot.pause`: commands run meanwhile that may run in a pause."""
        if timeout <= 0:
            raise NotImplementedError("figures have no window that could be clicked on")
        _yvm.pause(timeout)


def show(*, block=None):
    """Sends the open figures of this command and closes them, as if a window had been looked at and closed.
    With `block=False`, as `pyplot.pause` calls it, they stay open, to be sent again when they have changed."""
    for manager in _figures.of_this_command():
        _figures.send(manager)
        if block is not False:
            manager.close()
