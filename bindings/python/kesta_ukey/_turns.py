"""Operations take turns: the library has no lock and wants one call at a time.

What may wait for a person runs on a thread of its own when the main thread asks for it: Python
answers Ctrl-C on the main thread alone, and not while that is inside a C function.
"""

import threading
import time
from typing import Any, Callable, List, TypeVar

T = TypeVar("T")

TURN = threading.Lock()  # program-wide
_MAIN = threading.main_thread().ident
# A Ctrl-C that comes just before a wait is seen when the wait ends: no wait lasts longer.
LONGEST_WAIT = 0.05


def take_turn(patience: float) -> bool:
    """False when the turn did not come within so many seconds; a negative number waits for ever."""
    end = time.monotonic() + patience
    while not TURN.acquire(timeout=LONGEST_WAIT if patience < 0 else
                           max(0, min(LONGEST_WAIT, end - time.monotonic()))):
        if 0 <= patience and end <= time.monotonic():
            return False
    return True


def interruptible(work: Callable[[], T]) -> T:
    """The work's result or exception. An interrupted caller leaves the work behind, which goes on
    and keeps its turn until the person has answered."""
    if threading.get_ident() != _MAIN:
        return work()
    outcome: List[Any] = []
    done = threading.Event()

    def run() -> None:
        try:
            outcome.extend((True, work()))
        except BaseException as exception:  # pylint: disable=broad-except
            outcome.extend((False, exception))
        done.set()

    threading.Thread(target=run, name="kesta-ukey", daemon=True).start()
    while not done.wait(LONGEST_WAIT):
        pass
    if not outcome[0]:
        raise outcome[1]
    result: T = outcome[1]
    return result
