"""One call of the library, with everything that must not go wrong around it: the inputs' checks, the
turn, the output buffer and what the library says about its length.

Lengths come from the token in the end, and a token may say anything. Therefore texts end at their
NUL inside the buffer that was offered, whatever length is reported; sizes are taken from the bounds
in the public header; and a length that exceeds its bound is a failure.
"""

import ctypes
from ctypes import byref, c_int, c_uint
from typing import Any, Callable, List, NamedTuple, Optional, Type, TypeVar, Union

from . import _checks as checks
from ._codes import (BAD_ARGUMENT, BUFFER_TOO_SMALL, NOT_BOUND, UNSUPPORTED, failure, own_message,
                     say)
from ._error import KestaError
from ._kinds import Kind
from ._signatures import SIGNATURES
from ._turns import TURN, interruptible, take_turn

Pointer = Union[None, str, bytes, bytearray]
T = TypeVar("T")
Length = Union[Type[c_int], Type[c_uint]]

_acquire, _release = TURN.acquire, TURN.release

FILE_NAME = "libkesta_unified_zrkukey.so"
# Room behind what is offered: for the NUL, and for a token library that writes too far.
_MARGIN = 64
_EMPTY = bytes(_MARGIN)
# Above this an output size of (length + 4096) * 2 leaves the range of a signed 32-bit length.
_LONGEST_TEXT = 0x7FFFFFFF // 2 - 4096
_LONGEST_MESSAGE = 4096
# Some hundred thousand requests: what exceeds this is no length of theirs.
_LONGEST_REQUESTS = 64 << 20


class Event(NamedTuple):
    """A key came or went. kind: "arrival", "removal", "stopped" or "other". media_id is empty when
    the key that left was not there when the wait began; code tells of an arrived key that could not
    be read."""

    kind: str
    media_id: str
    code: int


_EVENTS = {1: "arrival", 2: "removal", 3: "stopped"}


def int32(operation: str, number: int) -> int:
    """The number, where it fits."""
    if -0x80000000 <= number <= 0x7FFFFFFF:
        return number
    raise failure(BAD_ARGUMENT, operation, say("NumberRange", number))


def uint32(operation: str, number: int) -> int:
    """The number, where it fits."""
    if 0 <= number <= 0xFFFFFFFF:
        return number
    raise failure(BAD_ARGUMENT, operation, say("NumberRange", number))


class Functions:
    """The library's functions, with their types. The library is never unloaded: a thread may wait
    inside it, and it keeps the token library loaded."""

    def __init__(self, path: str) -> None:
        try:
            library = ctypes.CDLL(path)
        except OSError as error:
            raise failure(NOT_BOUND, "Load", str(error)) from None
        for name, (result, arguments) in SIGNATURES.items():
            try:
                function = getattr(library, name)
            except AttributeError:
                raise failure(NOT_BOUND, "Load", say("NoFunction", path, name)) from None
            function.restype = result
            function.argtypes = arguments
            setattr(self, name, function)
        try:
            self.initialised = ctypes.c_bool.in_dll(library, "g_initFlag")
        except ValueError:
            raise failure(NOT_BOUND, "Load", say("NoVariable", path, "g_initFlag")) from None

    def __getattr__(self, name: str) -> Any:
        raise AttributeError(name)


class Caller:
    """What the operations are made of. encoding is that of texts, which the token library's charset
    decides; bytes that are not of it survive as surrogates."""

    def __init__(self, functions: Functions, patience: Optional[float] = None,
                 encoding: str = "utf-8") -> None:
        self._f = functions
        self._patience = -1 if patience is None else patience
        self.encoding = encoding

    # ---- Inputs

    def _text(self, operation: str, text: Optional[str]) -> Optional[bytes]:
        if text is None:
            return None
        # Most texts by far; what is not ASCII in UTF-8 may be so in another charset.
        data = text.encode() if text.isascii() and self.encoding == "utf-8" else \
            text.encode(self.encoding, "surrogateescape")
        if b"\0" in data:
            raise failure(BAD_ARGUMENT, operation, say("NulByte"))
        if len(data) > _LONGEST_TEXT:
            raise failure(BAD_ARGUMENT, operation, say("TextTooLong"))
        return data

    def _pointer(self, operation: str, value: Pointer) -> Any:
        """A text or bytes are handed on as a copy that may be written to, a bytearray itself."""
        if isinstance(value, bytearray):
            return (ctypes.c_char * len(value)).from_buffer(value)
        if isinstance(value, str):
            value = self._text(operation, value)
        return None if value is None else ctypes.create_string_buffer(value)

    @staticmethod
    def _refuse_if(operation: str, reason: Optional[str]) -> None:
        if reason:
            raise failure(BAD_ARGUMENT, operation, reason)

    # ---- Turns

    def _enter(self, operation: str) -> None:
        if not take_turn(self._patience):
            raise failure(BAD_ARGUMENT, operation, say("Busy"), Kind.BUSY)

    def _in_turn(self, operation: str, work: Callable[[], T]) -> T:
        self._enter(operation)
        try:
            return work()
        finally:
            TURN.release()

    def _asking(self, operation: str, work: Callable[[], T]) -> T:
        return interruptible(lambda: self._in_turn(operation, work))

    # ---- Failures

    def _message(self, code: int) -> str:
        """In the turn of the operation: the message is a call too. The buffer is far larger than
        what a probe tells, so that the call does not fail and store a code of its own."""
        text = ctypes.create_string_buffer(_LONGEST_MESSAGE + _MARGIN)
        length = c_int(_LONGEST_MESSAGE)
        failed = self._f.GetErrorMsg(code, text, byref(length))
        return say("NoText") if failed or not text.value else self._decode(text.value)

    def _failed(self, operation: str, code: int) -> KestaError:
        return failure(code, operation, own_message(code) or self._message(code))

    @staticmethod
    def _false_length(operation: str, length: int, bound: int) -> KestaError:
        sentence = "FalseLengthOfSome" if length == 0 else "FalseLength"
        return failure(BUFFER_TOO_SMALL, operation, say(sentence, length & 0xFFFFFFFF, bound))

    # ---- Outputs

    def _decode(self, data: bytes) -> str:
        return data.decode(self.encoding, "surrogateescape")

    def _cut(self, operation: str, buffer: Any, bound: int) -> str:
        """The text ends at its NUL. One character more than the bound is the NUL's place."""
        if buffer.raw[bound:] != _EMPTY:
            raise failure(BUFFER_TOO_SMALL, operation, say("Overrun", bound))
        return self._decode(buffer.value)

    # ---- Ways to call

    def _initialise(self) -> None:
        """For functions that do not bind the token library themselves."""
        if not self._f.initialised.value:
            self._run("Initialize", self._f.Initialize)

    def _initialise_quietly(self) -> None:
        """What asks no token binds nothing beside who has the turn."""
        if not self._f.initialised.value and TURN.acquire(blocking=False):
            try:
                self._f.Initialize()
            finally:
                TURN.release()

    def _run(self, operation: str, function: Any, *arguments: Any) -> None:
        # The whole of what a forwarded call costs: kept short.
        if not _acquire(False) and not take_turn(self._patience):
            raise failure(BAD_ARGUMENT, operation, say("Busy"), Kind.BUSY)
        try:
            code = function(*arguments)
            if code:
                raise self._failed(operation, code)
        finally:
            _release()

    def _beside(self, operation: str, function: Any, *arguments: Any) -> None:
        self._initialise_quietly()
        code = function(*arguments)
        if code:
            raise self._failed(operation, code)

    def _ask(self, operation: str, function: Any, *arguments: Any) -> None:
        interruptible(lambda: self._run(operation, function, *arguments))

    def _fetch(self, operation: str, function: Any, bound: int, kind: Length,
               arguments: Any) -> str:
        buffer = ctypes.create_string_buffer(bound + _MARGIN)
        length = kind(bound)
        code = function(*arguments, buffer, byref(length))
        if code == BUFFER_TOO_SMALL:
            raise self._false_length(operation, length.value, bound)
        if code:
            raise self._failed(operation, code)
        return self._cut(operation, buffer, bound)

    def _bounded(self, operation: str, function: Any, bound: int, kind: Length,
                 *arguments: Any) -> str:
        self._enter(operation)
        try:
            return self._fetch(operation, function, bound, kind, arguments)
        finally:
            TURN.release()

    def _bounded_beside(self, operation: str, function: Any, bound: int, kind: Length,
                        *arguments: Any) -> str:
        self._initialise_quietly()
        return self._fetch(operation, function, bound, kind, arguments)

    def _record(self, operation: str, function: Any, bound: int, kind: Length,
                *arguments: Any) -> bytes:
        def work() -> bytes:
            buffer = ctypes.create_string_buffer(bound + _MARGIN)
            length = kind(bound)
            code = function(*arguments, buffer, byref(length))
            if code:
                raise self._failed(operation, code)
            if not 0 <= length.value <= bound:
                raise self._false_length(operation, length.value, bound)
            if buffer.raw[bound:] != _EMPTY:
                raise failure(BUFFER_TOO_SMALL, operation, say("Overrun", bound))
            return buffer.raw[:length.value]
        return self._in_turn(operation, work)

    def _probe(self, operation: str, function: Any, most: int, least: int,
               arguments: Any) -> "List[Any]":
        """The text, and the length that the library reports."""
        length = c_uint(0)
        code = function(*arguments, None, byref(length))
        if code:
            raise self._failed(operation, code)
        if length.value > most:
            raise self._false_length(operation, length.value, most)
        bound = max(length.value, least)
        buffer = ctypes.create_string_buffer(bound + _MARGIN)
        length.value = bound
        code = function(*arguments, buffer, byref(length))
        if code == BUFFER_TOO_SMALL:
            raise self._false_length(operation, length.value, bound)
        if code:
            raise self._failed(operation, code)
        return [self._cut(operation, buffer, bound), length.value, buffer.value]

    def _room(self, text: str) -> int:
        return 2 * (len(text.encode(self.encoding, "surrogateescape")) + 4096)

    def _probed(self, operation: str, function: Any, of: str, *arguments: Any) -> str:
        most = self._room(of)
        return str(self._asking(
            operation, lambda: self._probe(operation, function, most, 0, arguments))[0])

    def _probed_whole(self, operation: str, function: Any, of: str, *arguments: Any) -> str:
        """A text that holds a NUL byte cannot pass through the library whole: a failure. A token
        library may or may not count the NUL at the end."""
        most = self._room(of)
        text, reported, raw = self._asking(
            operation, lambda: self._probe(operation, function, most, 0, arguments))
        if reported > len(raw) + 1:
            raise failure(UNSUPPORTED, operation, say("PlainCut", reported, len(raw)))
        return str(text)

    def _batch(self, operation: str, function: Any, data: Optional[str], data_list: Optional[str],
               *arguments: Any) -> str:
        # The library's own answer leaves a list of one text out.
        listed = len(self._text(operation, data_list) or b"")
        count = 0 if data_list is None else data_list.count("||") + 1
        alone = 0 if data is None else len(self._text(operation, data) or b"") + 2048
        room = 2 * (alone + count * (listed + 2048))
        if room > 0x7FFFFFFF:
            raise failure(BAD_ARGUMENT, operation, say("ListTooLong"))
        return str(self._asking(
            operation, lambda: self._probe(operation, function, room, room, arguments))[0])

    def _kept(self, operation: str, function: Any, *arguments: Any) -> str:
        """A probe makes requests, a second call with the same arguments fetches them. Whether that
        call wrote to the buffer tells success: its code can be one of another thread's."""
        def work() -> str:
            length = c_int(0)
            code = function(*arguments, None, byref(length))
            if code:
                raise self._failed(operation, code)
            bound = length.value
            if not 1 <= bound <= _LONGEST_REQUESTS:
                raise self._false_length(operation, bound, _LONGEST_REQUESTS)
            buffer = ctypes.create_string_buffer(bound + _MARGIN)
            buffer[0] = b"\1"
            code = function(*arguments, buffer, byref(length))
            if buffer[0] != b"\1":
                return self._cut(operation, buffer, bound)
            if code:
                raise self._failed(operation, code)
            raise self._false_length(operation, length.value, bound)
        return self._asking(operation, work)

    def _last_code(self) -> int:
        code = c_uint(0)
        self._f.GetLastErrCode(byref(code))
        return c_int(code.value).value

    def _wait(self) -> Event:
        raise NotImplementedError


def wait_once(caller: Caller, functions: Functions) -> Event:
    """One wait; for who holds the one wait of the process."""
    # It needs the token library for nothing, but would bind it beside other threads.
    try:
        caller._initialise()  # pylint: disable=protected-access
    except KestaError:
        pass
    kind, length = c_uint(0), c_uint(0)
    media_id = ctypes.create_string_buffer(_MARGIN)  # 17 bytes are used
    code = functions.WaitForKeyEvent(byref(kind), media_id, byref(length))
    # A wait that could not begin writes no kind; an arrived key that cannot be read does.
    if code and not kind.value:
        raise caller._in_turn(  # pylint: disable=protected-access
            "WaitForKeyEvent",
            lambda: caller._failed("WaitForKeyEvent", code))  # pylint: disable=protected-access
    text = media_id.raw.split(b"\0", 1)[0].decode("utf-8", "surrogateescape")
    return Event(_EVENTS.get(kind.value, "other"), text, code)
