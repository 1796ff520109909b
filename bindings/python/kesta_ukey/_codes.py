"""What a code means, and in which language the package says so."""

import json
import os
import pkgutil
from typing import Any, Dict, List, NamedTuple, Optional, Tuple

from ._error import KestaError
from ._kinds import EXCEPTIONS, Kind

_TABLES: Dict[str, Any] = json.loads(pkgutil.get_data(__package__, "tables.json") or b"")
LIMITS: Dict[str, Any] = _TABLES["limits"]
SYSTEM_FILE = "/etc/kesta/codes.json"

OK = 0
UNSUPPORTED = -300
BAD_ARGUMENT = -401
BUFFER_TOO_SMALL = -404
NOT_BOUND = -101

_language = "en"


def speak(language: str) -> None:
    """The language of the package's own sentences: "en" or "zh"."""
    global _language
    if language not in ("en", "zh"):
        raise ValueError(f"no sentences in {language!r}: it takes 'en' or 'zh'")
    _language = language


def say(sentence: str, *words: object) -> str:
    """One of the package's own sentences."""
    return str(_TABLES["sentences"][sentence][_language]).format(*words)


def own_message(code: int) -> Optional[str]:
    """The sentence for a code of the library's; nothing for any other code."""
    known = _TABLES["library"].get(str(code))
    return str(known[_language]) if known else None


class PinRecord(NamedTuple):
    """Where a token library's PIN record holds the numbers."""

    length: int
    tries_left: int
    tries_most: int
    locked: int


class Tries(NamedTuple):
    """How often a wrong PIN may still be entered."""

    left: int
    most: int
    locked: bool


class Codes:
    """The table that tells the kind of a code. docs/codes.md describes a maker's file."""

    _in_use: "Optional[Codes]" = None

    def __init__(self, rows: List[Tuple[int, int, Kind]],
                 pin_record: Optional[PinRecord] = None) -> None:
        """rows: first and last code with the kind of all between; a later row goes first."""
        self.rows = list(rows)
        self.pin_record = pin_record

    @classmethod
    def softkey(cls) -> "Codes":
        """The software key's table."""
        return cls._parse(_TABLES["softkey"], "")

    @classmethod
    def read(cls, path: str) -> "Codes":
        """A maker's file. Raises ValueError, with a reason, for what is no such file."""
        with open(path, encoding="utf-8") as file:
            return cls._parse(json.load(file), f"{path}: ")

    @classmethod
    def in_use(cls) -> "Codes":
        """The maker's where /etc/kesta/codes.json holds one, else the software key's."""
        if cls._in_use is None:
            found = os.path.exists(SYSTEM_FILE)
            cls._in_use = cls.read(SYSTEM_FILE) if found else cls.softkey()
        return cls._in_use

    def use(self) -> None:
        """Puts this table in the place of the one in use, in the whole process."""
        Codes._in_use = self

    def kind_of(self, code: int) -> Kind:
        """The kind of any code."""
        known = _TABLES["library"].get(str(code))
        if known:
            return Kind(known["kind"])
        for first, last, kind in reversed(self.rows):
            if first <= code <= last:
                return kind
        return Kind.UNKNOWN

    def tries(self, record: bytes) -> Optional[Tries]:
        """The numbers of a PIN record, or nothing where they are not known to stand there."""
        layout = self.pin_record
        if layout is None or len(record) != layout.length:
            return None
        if not all(0 <= at < len(record) for at in layout[1:]):
            return None
        left, most = record[layout.tries_left], record[layout.tries_most]
        locked = record[layout.locked]
        if locked > 1 or not 0 < most or left > most or (locked == 1) != (left == 0):
            return None
        return Tries(left, most, locked == 1)

    @classmethod
    def _parse(cls, data: Any, where: str) -> "Codes":
        def wrong(field: object) -> ValueError:
            return ValueError(where + say("CodesField", json.dumps(field, ensure_ascii=False)))

        if not isinstance(data, dict) or set(data) - {"codes", "pinRecord"}:
            raise wrong(sorted(data) if isinstance(data, dict) else data)
        rows = []
        for row in data.get("codes", []):
            try:
                first, last, name = row if isinstance(row, list) else _fields(row)
                rows.append((_number(first), _number(last), Kind(name)))
            except (ValueError, TypeError, KeyError):
                raise wrong(row) from None
            if rows[-1][0] > rows[-1][1]:
                raise wrong(row)
        record = data.get("pinRecord")
        if record is None:
            return cls(rows)
        names = ("length", "triesLeft", "triesMost", "locked")
        if not isinstance(record, dict) or set(record) != set(names) or \
                not all(type(value) is int and value >= 0 for value in record.values()):
            raise wrong(record)
        return cls(rows, PinRecord(*(record[name] for name in names)))


def _fields(row: Dict[str, Any]) -> Tuple[Any, Any, Any]:
    if set(row) == {"code", "kind"}:
        return row["code"], row["code"], row["kind"]
    if set(row) == {"first", "last", "kind"}:
        return row["first"], row["last"], row["kind"]
    raise KeyError


def _number(code: Any) -> int:
    if isinstance(code, bool) or not isinstance(code, (int, str)):
        raise TypeError
    value = int(code, 0) if isinstance(code, str) else code
    if not -(1 << 31) <= value < 1 << 32:
        raise ValueError
    return value - (1 << 32) if value >= 1 << 31 else value


def failure(code: int, operation: str, message: str, kind: Optional[Kind] = None) -> KestaError:
    """The exception of the kind of a code, unless the kind is known better."""
    kind = kind or Codes.in_use().kind_of(code)
    return EXCEPTIONS.get(kind, KestaError)(code, kind, operation, message)
