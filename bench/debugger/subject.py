"""What is measured, plainly, under `bdb` and beneath the engine's breakpoints."""

import bdb
import os
import time

stamp = 0


def loop():
    total = 0
    for i in range(300_000):
        total += i
    return total


def callee(value):
    return value


def calls():
    for i in range(300_000):
        callee(i)


def other():
    return 1  # The breakpoint that nobody comes by.


def hit():
    global stamp
    stamp = time.perf_counter_ns()
    return stamp


def behind_hit():
    return 1


def last_stamp():
    return float(stamp)


def lines():
    while True:
        time.thread_time()


def line_of(function):
    return function.__code__.co_firstlineno + 1


def time_of(function):
    begin = time.thread_time()
    function()
    return time.thread_time() - begin


def time_loop():
    return time_of(loop)


def time_calls():
    return time_of(calls)


class Debugger(bdb.Bdb):
    def user_line(self, frame):
        self.set_continue()


def under_bdb(function):
    debugger = Debugger()
    # In a file that the loop is in, as it counts by files.
    assert debugger.set_break(os.path.abspath(__file__), line_of(other)) is None
    return debugger.runcall(time_of, function)


def time_loop_under_bdb():
    return under_bdb(loop)


def time_calls_under_bdb():
    return under_bdb(calls)
