"""Kinds of failure, each with its exception."""
# Made by bindings/generate from bindings/codes.json; change it there.

from enum import Enum
from typing import Dict, Type

from ._error import KestaError


class Kind(str, Enum):
    """What went wrong, whatever the token library's numbers are."""

    def __str__(self) -> str:
        return str(self.value)

    OK = "ok"  # success
    NO_KEY = "no-key"  # no key, or not this key, is present
    SEVERAL_KEYS = "several-keys"  # several keys are present and none was named
    REMOVED = "removed"  # the key was pulled out meanwhile
    PIN_WRONG = "pin-wrong"  # the PIN is wrong
    PIN_LOCKED = "pin-locked"  # the PIN is locked
    PIN_REQUIRED = "pin-required"  # the PIN has not been verified
    PIN_UNFIT = "pin-unfit"  # the new PIN is not acceptable
    CANCELLED = "cancelled"  # the PIN entry was cancelled
    REFUSED = "refused"  # a person refused at the key
    TIMEOUT = "timeout"  # nobody answered at the key in time
    NOT_FOUND = "not-found"  # the key holds no such certificate, key pair or data object
    MISMATCH = "mismatch"  # a certificate or an escrowed key belongs to another key
    MALFORMED = "malformed"  # a certificate, escrowed key or cipher text cannot be read
    TOO_LONG = "too-long"  # a text is too long for the key
    BUSY = "busy"  # the key or the library is busy with something else
    DAMAGED = "damaged"  # what the key stores is damaged or cannot be reached
    FULL = "full"  # the key has no room left
    UNSUPPORTED = "unsupported"  # the library or the key does not support this
    BAD_ARGUMENT = "bad-argument"  # an argument is missing, malformed or out of range
    BUFFER = "buffer"  # a buffer is too small, or a reported length cannot be true
    NOT_LOADED = "not-loaded"  # the library or the token library cannot be loaded
    FAILED = "failed"  # the key or its library could not do it
    UNKNOWN = "unknown"  # the code is in no table


class NoKey(KestaError):
    """No key, or not this key, is present."""


class SeveralKeys(KestaError):
    """Several keys are present and none was named."""


class Removed(KestaError):
    """The key was pulled out meanwhile."""


class PinWrong(KestaError):
    """The PIN is wrong."""


class PinLocked(KestaError):
    """The PIN is locked."""


class PinRequired(KestaError):
    """The PIN has not been verified."""


class PinUnfit(KestaError):
    """The new PIN is not acceptable."""


class Cancelled(KestaError):
    """The PIN entry was cancelled."""


class Refused(KestaError):
    """A person refused at the key."""


class Timeout(KestaError):
    """Nobody answered at the key in time."""


class NotFound(KestaError):
    """The key holds no such certificate, key pair or data object."""


class Mismatch(KestaError):
    """A certificate or an escrowed key belongs to another key."""


class Malformed(KestaError):
    """A certificate, escrowed key or cipher text cannot be read."""


class TooLong(KestaError):
    """A text is too long for the key."""


class Busy(KestaError):
    """The key or the library is busy with something else."""


class Damaged(KestaError):
    """What the key stores is damaged or cannot be reached."""


class Full(KestaError):
    """The key has no room left."""


class Unsupported(KestaError):
    """The library or the key does not support this."""


class BadArgument(KestaError):
    """An argument is missing, malformed or out of range."""


class Buffer(KestaError):
    """A buffer is too small, or a reported length cannot be true."""


class NotLoaded(KestaError):
    """The library or the token library cannot be loaded."""


class Failed(KestaError):
    """The key or its library could not do it."""


class Unknown(KestaError):
    """The code is in no table."""


EXCEPTIONS: Dict[Kind, Type[KestaError]] = {
    Kind.NO_KEY: NoKey,
    Kind.SEVERAL_KEYS: SeveralKeys,
    Kind.REMOVED: Removed,
    Kind.PIN_WRONG: PinWrong,
    Kind.PIN_LOCKED: PinLocked,
    Kind.PIN_REQUIRED: PinRequired,
    Kind.PIN_UNFIT: PinUnfit,
    Kind.CANCELLED: Cancelled,
    Kind.REFUSED: Refused,
    Kind.TIMEOUT: Timeout,
    Kind.NOT_FOUND: NotFound,
    Kind.MISMATCH: Mismatch,
    Kind.MALFORMED: Malformed,
    Kind.TOO_LONG: TooLong,
    Kind.BUSY: Busy,
    Kind.DAMAGED: Damaged,
    Kind.FULL: Full,
    Kind.UNSUPPORTED: Unsupported,
    Kind.BAD_ARGUMENT: BadArgument,
    Kind.BUFFER: Buffer,
    Kind.NOT_LOADED: NotLoaded,
    Kind.FAILED: Failed,
    Kind.UNKNOWN: Unknown,
}
