"""What a code means, a maker's file, and languages."""

import json
import os
import pathlib

import pytest

from kesta_ukey import Codes, KestaError, Kind, speak
from kesta_ukey._kinds import EXCEPTIONS

EXAMPLE = pathlib.Path(os.environ["KESTA_CODES"])


def kind_of(stand_in, code):
    stand_in.tell(code=code)
    with pytest.raises(KestaError) as failed:
        stand_in.library.verify_pin("SN")
    assert isinstance(failed.value, EXCEPTIONS[Kind(failed.value.kind)])
    return failed.value.kind


def test_each_kind_has_an_exception_of_its_own():
    assert set(EXCEPTIONS) == set(Kind) - {Kind.OK}
    assert len(set(EXCEPTIONS.values())) == len(EXCEPTIONS)


def test_library_codes_are_fixed_and_the_software_keys_known(stand_in):
    assert kind_of(stand_in, -101) == "not-loaded"
    assert kind_of(stand_in, 0x5B11) == "no-key"
    assert kind_of(stand_in, 0x5B12) == "removed"
    assert kind_of(stand_in, 0x5B22) == "pin-locked"
    assert kind_of(stand_in, 0x5B32) == "timeout"
    assert kind_of(stand_in, 0x1234) == "unknown"


def test_makers_file_is_read(stand_in, tmp_path):
    file = tmp_path / "codes.json"
    file.write_text(json.dumps({
        "codes": [{"first": -2199, "last": -2100, "kind": "failed"},
                  {"code": -2104, "kind": "pin-locked"},
                  {"code": "0x80100069", "kind": "removed"}, {"code": -101, "kind": "full"}],
        "pinRecord": {"length": 4, "triesLeft": 2, "triesMost": 1, "locked": 0}}))
    Codes.read(str(file)).use()
    assert kind_of(stand_in, -2100) == "failed"
    assert kind_of(stand_in, -2104) == "pin-locked"
    assert kind_of(stand_in, 0x80100069 - (1 << 32)) == "removed"
    assert kind_of(stand_in, 0x5B21) == "unknown"
    assert kind_of(stand_in, -101) == "not-loaded"
    stand_in.tell(code=0, text=b"\0\x08\x05\0", reported=4)
    assert stand_in.library.key("SN").pin_tries() == (5, 8, False)


def test_example_file_is_the_software_keys_table():
    table, softkey = Codes.read(str(EXAMPLE)), Codes.softkey()
    assert (table.rows, table.pin_record) == (softkey.rows, softkey.pin_record)


@pytest.mark.parametrize("wrong", [
    [], {"code": []}, {"codes": [{"code": 1, "kind": "broken"}]}, {"codes": [{"code": 1}]},
    {"codes": [{"first": 2, "last": 1, "kind": "failed"}]},
    {"codes": [{"code": "x", "kind": "failed"}]}, {"codes": [{"code": 1 << 32, "kind": "failed"}]},
    {"codes": [{"code": True, "kind": "failed"}]},
    {"codes": [], "pinRecord": {"length": 8}}, {"codes": [], "pinRecord": [8, 0, 1, 2]}])
def test_what_is_no_such_file_is_refused_with_a_reason(tmp_path, wrong):
    file = tmp_path / "codes.json"
    file.write_text(json.dumps(wrong))
    with pytest.raises(ValueError) as refused:
        Codes.read(str(file))
    assert str(file) in str(refused.value)


def test_tries_are_not_told_of_a_record_that_cannot_be_one(stand_in):
    key = stand_in.library.key("SN")
    stand_in.tell(reported=8)
    for record, told in ((b"\4\6\0\0\0\6\x10\0", (4, 6, False)), (b"\0\6\1\0\0\6\x10\0", (0, 6, True)),
                         (b"\7\6\0\0\0\6\x10\0", None), (b"\4\6\2\0\0\6\x10\0", None),
                         (b"\4\6\1\0\0\6\x10\0", None)):
        stand_in.tell(text=record)
        assert key.pin_tries() == told


def test_sentences_are_given_in_chinese_too(stand_in):
    speak("zh")
    stand_in.tell(code=-101)
    with pytest.raises(KestaError) as failed:
        stand_in.library.verify_pin("SN")
    assert failed.value.message == "令牌库缺失或不完整"
    with pytest.raises(ValueError):
        speak("fr")
