"""Tells clients how far a loop has come."""

import contextlib
import itertools
import math
import threading
import time

import _yvm

# In seconds, between two events of one bar. Twenty in a second look smooth, and cost no reader much.
_INTERVAL = 0.05
# In seconds, the memory of the rate.
_RATE_WINDOW = 2.0

_ids = itertools.count(1)


def progress(iterable=None, label="", total=None):
    """Tells how far a loop over `iterable` has come, or, in a `with` block, how far `update` says:

        for row in yvm.progress(rows, "rows"): ...
        with yvm.progress(total=size) as bar: bar.update(n)

    `total` is by default the length of the iterable, if it has one."""
    return Progress(iterable, label, total)


class Progress:
    """Something that moves on. `done` and `label` may be read, `label` and `total` set. Safe from several
    threads, a loop over it apart."""

    def __init__(self, iterable, label, total):
        if total is None and iterable is not None:
            # What has no length, or one that is beyond what `len` can tell.
            with contextlib.suppress(TypeError, OverflowError):
                total = len(iterable)
        self.label = label
        self.total = total
        self._iterable = iterable
        # Reentrant, as a command at a pre-emption point may move the same bar.
        self._lock = threading.RLock()
        self._reset()

    @property
    def label(self):
        return self._label

    @label.setter
    def label(self, label):
        if not isinstance(label, str):
            raise TypeError(f"the label of a progress is a {type(label).__qualname__}: a str is accepted")
        self._label = label

    @property
    def total(self):
        return self._total

    @total.setter
    def total(self, total):
        try:
            is_accepted = total is None or (not isinstance(total, str) and 0 <= float(total) < math.inf)
        except (TypeError, ValueError, OverflowError):
            is_accepted = False
        if not is_accepted:
            raise ValueError(f"the total of a progress is {total!r}: zero, a positive number or None is accepted")
        self._total = total

    def update(self, n=1):
        """So much more is done."""
        with self._lock:
            self.done += n
            if time.monotonic() >= self._next_time:
                self._tell()

    def close(self):
        """Nothing more will be done: told at once. Called by the end of the loop or of the block, however
        that comes."""
        with self._lock:
            if not self._is_finished:
                self._is_finished = True
                self._tell()
                # Whatever is still done, this was the last that is told.
                self._next_time = math.inf

    def __enter__(self):
        self._start()
        return self

    def __exit__(self, *exception):
        self.close()

    def __iter__(self):
        if self._iterable is None:
            raise TypeError("this progress was made without something to loop over")
        self._start()
        now = time.monotonic
        try:
            for item in self._iterable:
                yield item
                self.done += 1
                if now() >= self._next_time:
                    self._tell()
        finally:
            self.close()

    def _reset(self):
        self.done = 0
        self._id = next(_ids)
        self._is_finished = False
        self._rate = None
        self._begin = self._last_time = self._next_time = time.monotonic()
        self._last_done = 0.0

    def _start(self):
        """Tells the beginning. Once more from the end, it is that of another bar."""
        with self._lock:
            if self._is_finished:
                self._reset()
            self._tell()

    def _tell(self):
        with self._lock:
            now = time.monotonic()
            self._next_time = now + _INTERVAL
            self._measure(now)
            if _yvm.wants_progress():
                _yvm.tell_progress(
                    self._id,
                    self.label,
                    float(self.done),
                    None if self.total is None else float(self.total),
                    self._rate,
                    self._remaining(),
                    self._is_finished,
                )

    def _measure(self, now):
        """Smooths the rate, so that the remaining time does not jump; at the end it is that of the whole."""
        done = float(self.done)
        if self._is_finished or self._rate is None:
            elapsed = now - self._begin
            self._rate = done / elapsed if done and elapsed > 0 else None
        elif now > self._last_time:
            elapsed = now - self._last_time
            weight = 1 - math.exp(-elapsed / _RATE_WINDOW)
            self._rate += weight * ((done - self._last_done) / elapsed - self._rate)
        self._last_time, self._last_done = now, done

    def _remaining(self):
        if self.total is None:
            return None
        left = float(self.total) - float(self.done)
        if left <= 0:
            return 0.0
        return left / self._rate if self._rate and self._rate > 0 and not self._is_finished else None
