"""What the tests share: the library with a stand-in for everything behind its interface, and the
software key."""

import ctypes
import json
import os
import pathlib
import re
import subprocess
import time

import pytest

from kesta_ukey import Codes, Library, speak

BUILD = pathlib.Path(os.environ["KESTA_BUILD"])
DESCRIPTION = json.loads(pathlib.Path(os.environ["KESTA_DESCRIPTION"]).read_text(encoding="utf-8"))
# The functions of the version script.
EXPORTED = set(re.findall(r"^ +(\w+);$", pathlib.Path(os.environ["KESTA_EXPORTS"]).read_text(
    encoding="utf-8").split("# variables")[0], re.MULTILINE))


class StandIn:
    """A library with all functions and no key behind them, and how it is steered."""

    def __init__(self):
        path = str(BUILD / "lib/libface_stand_in.so")
        self._control = ctypes.CDLL(path)
        self._control.stand_in_number.argtypes = [ctypes.c_char_p, ctypes.c_longlong]
        self._control.stand_in_number.restype = ctypes.c_bool
        self._control.stand_in_text.argtypes = [ctypes.c_char_p, ctypes.c_char_p, ctypes.c_size_t]
        self._control.stand_in_text.restype = ctypes.c_bool
        self._control.stand_in_event.argtypes = [ctypes.c_uint, ctypes.c_char_p, ctypes.c_int]
        self._control.stand_in_calls.restype = ctypes.c_char_p
        self.library = Library.load(path)

    def reset(self):
        self._control.stand_in_reset()

    def tell(self, **fields):
        for name, value in fields.items():
            if isinstance(value, (str, bytes)):
                data = value.encode() if isinstance(value, str) else value
                assert self._control.stand_in_text(name.encode(), data, len(data)), name
            else:
                assert self._control.stand_in_number(name.encode(), value), name

    def happen(self, kind, media_id, code=0):
        self._control.stand_in_event(kind, media_id.encode(), code)

    @property
    def calls(self):
        return self._control.stand_in_calls().decode().splitlines()

    def inside(self):
        return self._control.stand_in_inside()

    def most_inside(self):
        return self._control.stand_in_most_inside()


_STAND_IN = StandIn()


@pytest.fixture
def stand_in():
    _STAND_IN.reset()
    yield _STAND_IN
    _STAND_IN.reset()
    Codes.softkey().use()
    speak("en")


def eventually(condition):
    """True as soon as it holds; a failure is a long wait."""
    end = time.monotonic() + 60
    while not condition():
        if time.monotonic() > end:
            return False
        time.sleep(0.002)
    return True


def softkey(*arguments):
    """The software key's command."""
    return subprocess.run([BUILD / "bin/softkey", *arguments], check=True, capture_output=True,
                          text=True).stdout


@pytest.fixture
def library(tmp_path, monkeypatch):
    """The shipped library with a software key of its own."""
    monkeypatch.setenv("KESTA_SOFTKEY_HOME", str(tmp_path / "key"))
    monkeypatch.setenv("KESTA_SOFTKEY_PIN", "135790")
    softkey("create", "--serial", "SK0001", "--media-id", "MEDIA-1")
    loaded = Library.load(str(BUILD / "lib/libkesta_unified_zrkukey.so"))
    loaded.set_language("en_US", "")
    yield loaded
    loaded.remove_pin_cache()
    loaded.finalize()
