"""Keys that come and go: one wait on a thread of its own, for loops with and without asyncio."""

import asyncio
import sys
import threading
from collections import deque
from typing import Any, Deque, List, Optional, Tuple, Union

from ._caller import Caller, Event, Functions, wait_once
from ._codes import BAD_ARGUMENT, failure, say
from ._kinds import Kind
from ._turns import LONGEST_WAIT

_STOP_INTERVAL = 0.005


class _Wait:
    """What the thread holds on to; the iterator does not belong to it, so that it can be dropped."""

    taken: "Optional[_Wait]" = None
    guard = threading.Lock()

    def __init__(self, caller: Caller, functions: Functions, once: bool) -> None:
        self.caller = caller
        self.functions = functions
        self.once = once
        self.stopping = False
        self.found: Deque[Union[Event, BaseException]] = deque()
        self.changed = threading.Condition()
        self.wakers: List[Tuple[asyncio.AbstractEventLoop, "asyncio.Future[None]"]] = []
        self.thread = threading.Thread(target=self._loop, name="kesta-ukey-events", daemon=True)

    def begin(self) -> None:
        """One wait at a time in the process; one that is being stopped is waited for."""
        while True:
            with _Wait.guard:
                other = _Wait.taken
                if other is None:
                    _Wait.taken = self
                    break
            if not other.stopping:
                raise failure(BAD_ARGUMENT, "WaitForKeyEvent", say("WaitInProgress"), Kind.BUSY)
            other.thread.join()
        self.thread.start()

    def _loop(self) -> None:
        try:
            while not self.stopping:
                event = wait_once(self.caller, self.functions)
                if self.once or (event.kind != "stopped" and not self.stopping):
                    self._deliver(event)
                if self.once:
                    break
        except BaseException as exception:  # pylint: disable=broad-except
            self._deliver(exception)
        finally:
            with _Wait.guard:
                _Wait.taken = None
            self._deliver(StopIteration())

    def _deliver(self, what: Union[Event, BaseException]) -> None:
        with self.changed:
            self.found.append(what)
            wakers, self.wakers = self.wakers, []
            self.changed.notify_all()
        for loop, future in wakers:
            try:
                loop.call_soon_threadsafe(_wake, future)
            except RuntimeError:
                pass  # the loop is closed; nobody waits there any more

    def take(self) -> Union[Event, BaseException, None]:
        """What comes next; nothing while nothing is there. The end stays."""
        if not self.found:
            return None
        if isinstance(self.found[0], StopIteration):
            return self.found[0]
        return self.found.popleft()

    def stop(self) -> None:
        """Returns when the thread has ended. A stop that comes before the wait has begun its loop
        is lost, so it is repeated."""
        self.stopping = True
        while self.thread.is_alive() and self.thread is not threading.current_thread():
            self.functions.StopDetectUKey()
            self.thread.join(_STOP_INTERVAL)


def _wake(future: "asyncio.Future[None]") -> None:
    if not future.done():
        future.set_result(None)


class Events:
    """`for event in events` and `async for event in events`, until close() or the end of a with
    block. Dropping the iterator closes it too."""

    def __init__(self, caller: Caller, functions: Functions, once: bool = False) -> None:
        self._wait = _Wait(caller, functions, once)
        self._begun = False
        self._wait.begin()
        self._begun = True

    def close(self) -> None:
        """Ends the wait. Returns when it has ended, which takes some 20 milliseconds."""
        self._wait.stop()

    async def aclose(self) -> None:
        """The same without holding up the loop."""
        self._wait.stopping = True
        await asyncio.get_running_loop().run_in_executor(None, self._wait.stop)

    def __enter__(self) -> "Events":
        return self

    def __exit__(self, *_: Any) -> None:
        self.close()

    async def __aenter__(self) -> "Events":
        return self

    async def __aexit__(self, *_: Any) -> None:
        await self.aclose()

    def __del__(self) -> None:
        # At the end of the program no thread can be started, and none is needed.
        if getattr(self, "_begun", False) and not self._wait.stopping and not sys.is_finalizing():
            self._wait.stopping = True
            threading.Thread(target=self._wait.stop, daemon=True).start()

    def __iter__(self) -> "Events":
        return self

    def __next__(self) -> Event:
        with self._wait.changed:
            while True:
                found = self._wait.take()
                if isinstance(found, Event):
                    return found
                if found is not None:
                    raise found
                self._wait.changed.wait(LONGEST_WAIT)

    def __aiter__(self) -> "Events":
        return self

    async def __anext__(self) -> Event:
        loop = asyncio.get_running_loop()
        while True:
            with self._wait.changed:
                found = self._wait.take()
                if isinstance(found, Event):
                    return found
                if isinstance(found, StopIteration):
                    raise StopAsyncIteration
                if found is not None:
                    raise found
                future = loop.create_future()
                self._wait.wakers.append((loop, future))
            await future


def wait_interruptibly(caller: Caller, functions: Functions) -> Event:
    """One event. An interrupted caller ends the wait."""
    with Events(caller, functions, once=True) as events:
        return next(events)
