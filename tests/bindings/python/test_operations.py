"""What each operation hands to the library: driven by the description of the header."""

import ast
import inspect
import pathlib
import re

import pytest

from conftest import DESCRIPTION, EXPORTED
from kesta_ukey import BadArgument, Busy, KestaError, Library
from kesta_ukey._signatures import SIGNATURES

# Python's style, written out for those whose words are not plain.
IRREGULAR = {
    "GetCertDN": "get_cert_dn", "InitUKey": "init_ukey", "TestInitUKey": "test_init_ukey",
    "VerifyPIN": "verify_pin", "Batch_Sign": "batch_sign", "StopDetectUKey": "stop_detect_ukey",
    "Batch_InitAndGenerateCertRequest": "batch_init_and_generate_cert_request",
    "ImportX509Cert": "import_x509_cert", "ImportEncX509Cert": "import_enc_x509_cert",
    "Batch_ImportX509Cert": "batch_import_x509_cert",
}
NAMES = {f["name"]: IRREGULAR.get(f["name"], re.sub(r"(?<!^)(?=[A-Z])", "_", f["name"]).lower())
         for f in DESCRIPTION}
# What the stand-in has no record of, or does not do by a plain call.
UNRECORDED = {"GetLastErrCode", "RegisterCert", "UnregisterCert", "RepairDriver", "WaitForKeyEvent",
              "StopDetectUKey"}


def extremes(function):
    """Arguments that only the right width and sign hand on as they are, and the record of them."""
    values, words = [], []
    for place, parameter in enumerate(function["parameters"]):
        if parameter["type"] == "text":
            values.append(f"a{place}")
        elif parameter["type"] == "pointer":
            values.append(b"bytes")
        elif parameter["type"] == "number":
            values.append(-0x80000000 if parameter["signed"] else 0xFFFFFFFF)
        else:
            continue
        words.append("pointer" if parameter["type"] == "pointer" else str(values[-1]))
    return values, words


def forwarded():
    return [pytest.param(f, id=f["name"]) for f in DESCRIPTION if f["name"] not in UNRECORDED]


def test_every_function_has_an_operation_and_a_signature():
    assert set(NAMES) == set(SIGNATURES) == EXPORTED
    assert len(DESCRIPTION) == len(EXPORTED)
    for name in NAMES.values():
        assert inspect.isfunction(getattr(Library, name))


@pytest.mark.parametrize("function", forwarded())
def test_arguments_are_handed_on_in_the_order_of_c(stand_in, function):
    stand_in.tell(text="x")
    values, words = extremes(function)
    getattr(stand_in.library, NAMES[function["name"]])(*values)
    # Behind them the capacity that the stand-in notes for a batch.
    assert stand_in.calls[-1].split()[:len(words) + 1] == [function["name"], *words]


@pytest.mark.parametrize("function", [f for f in forwarded() if f.values[0]["parameters"]])
def test_arguments_that_do_not_fit_are_refused_before_the_call(stand_in, function):
    values, _ = extremes(function)
    for place, value in enumerate(values):
        if isinstance(value, bytes):
            continue
        wrong = list(values)
        wrong[place] = "a\0b" if isinstance(value, str) else value - 1 if value < 0 else value + 1
        with pytest.raises(BadArgument) as refused:
            getattr(stand_in.library, NAMES[function["name"]])(*wrong)
        assert refused.value.operation == function["name"]
        wrong[place] = 3.5
        with pytest.raises((TypeError, AttributeError, Exception)) as refused:
            getattr(stand_in.library, NAMES[function["name"]])(*wrong)
        assert not isinstance(refused.value, KestaError)
    assert not any(call.startswith(function["name"]) for call in stand_in.calls)


def test_sources_are_of_python_3_9():
    folder = pathlib.Path(inspect.getfile(Library)).parent
    sources = list(folder.glob("*.py"))
    assert len(sources) > 10
    for source in sources:
        ast.parse(source.read_text(encoding="utf-8"), str(source), feature_version=(3, 9))


def test_missing_library_is_not_loaded():
    with pytest.raises(KestaError) as refused:
        Library.load("/nowhere/libkesta.so")
    assert refused.value.kind == "not-loaded" and "/nowhere/libkesta.so" in refused.value.message
    with pytest.raises(KestaError) as refused:
        Library.load("libc.so.6")
    assert "Initialize" in refused.value.message


def test_library_is_found_by_its_name_where_no_path_is_given(monkeypatch):
    asked = []
    monkeypatch.setattr("ctypes.CDLL", lambda name: asked.append(name) or (_ for _ in ()).throw(OSError(name)))
    with pytest.raises(KestaError):
        Library.load()
    assert asked == ["libkesta_unified_zrkukey.so"]


def test_operations_that_initialise_nothing_are_initialised_first(stand_in):
    stand_in.library.init_ukey("SN")
    stand_in.library.set_cache_pin_flag("SN", 1)
    assert stand_in.calls == ["Initialize", "InitUKey SN", "SetCachePinFlag SN 1"]


def test_failure_tells_code_kind_operation_and_message(stand_in):
    stand_in.tell(code=0x5B21, message="the PIN is wrong")
    with pytest.raises(KestaError) as failed:
        stand_in.library.verify_pin("SN")
    error = failed.value
    assert (error.code, error.kind, error.operation) == (0x5B21, "pin-wrong", "VerifyPIN")
    assert str(error) == "VerifyPIN: the PIN is wrong (0x00005B21)"
    assert type(error).__name__ == "PinWrong"
    assert stand_in.library.get_last_err_code() == 0x5B21


def test_negative_codes_of_a_token_library_stay_negative(stand_in):
    stand_in.tell(code=-2000000000)
    with pytest.raises(KestaError) as failed:
        stand_in.library.verify_pin("SN")
    assert failed.value.code == -2000000000 and failed.value.kind == "unknown"
    assert stand_in.library.get_last_err_code() == -2000000000


def test_texts_of_another_charset_go_through(stand_in):
    stand_in.library.encoding = "gb18030"
    try:
        stand_in.tell(text="转账".encode("gb18030"))
        assert stand_in.library.get_label("SN") == "转账"
    finally:
        stand_in.library.encoding = "utf-8"
    stand_in.tell(text=b"\xff\xfe")
    label = stand_in.library.get_label("SN")
    stand_in.library.set_label("SN", label)
    assert stand_in.library.get_label("SN") == label


def test_bytearray_is_handed_on_itself(stand_in):
    buffer = bytearray(b"in")
    stand_in.library.test_init_ukey("SN", buffer)
    assert stand_in.calls[-1] == "TestInitUKey SN pointer"
    stand_in.library.test_init_ukey("SN")
    assert stand_in.calls[-1] == "TestInitUKey SN NULL"


def test_impatient_operations_raise_busy(stand_in):
    from kesta_ukey._turns import TURN
    with TURN:
        for seconds in (0, -1, float("nan")):
            with pytest.raises(Busy):
                stand_in.library.within(seconds).get_label("SN")
        with pytest.raises(Busy):
            stand_in.library.within(0.01).sign("SN", 1, 2, "data", "w")
        stand_in.library.get_dll_version()
        stand_in.library.check_driver_integrity(1)
    for seconds in (0, 1e300):
        stand_in.library.within(seconds).get_label("SN")
