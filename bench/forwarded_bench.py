"""The cost of a forwarded call in Python, of a library that does nothing. Prints nanoseconds of
the processor's time, which other work does not lengthen by much."""

import sys
import time

from kesta_ukey import Library


def nanoseconds(call, calls=100000):
    """The best of several rounds, which other work slows least."""
    best = float("inf")
    for _ in range(7):
        start = time.process_time_ns()
        for _ in range(calls):
            call()
        best = min(best, (time.process_time_ns() - start) / calls)
    return best


set_label = Library.load(sys.argv[1]).set_label
print(f"Python       {nanoseconds(lambda: set_label('SK0001', 'a label')):8.1f}")
