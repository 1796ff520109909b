"""Lengths that cannot be true, for every operation that writes to a buffer."""

import pytest

from conftest import DESCRIPTION
from kesta_ukey import KestaError
from test_operations import NAMES, extremes

LIES = [0, 1, 3, 5, 17, 65, 5000, 70000, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF]
OUTPUTS = [f for f in DESCRIPTION if f["output"] and f["output"]["rule"] != "event"]


def run(stand_in, function):
    """What comes out, as bytes, or the failure."""
    try:
        found = getattr(stand_in.library, NAMES[function["name"]])(*extremes(function)[0])
    except KestaError as error:
        return error
    return found if isinstance(found, bytes) else found.encode()


def harmless(found):
    if isinstance(found, KestaError):
        return found.code in (-404, -300) and found.message
    # A record is followed by the zeros of the buffer that it lay in.
    return b"text".startswith(found[:4]) and not found[4:].strip(b"\0")


@pytest.mark.parametrize("function", OUTPUTS, ids=lambda f: f["name"])
@pytest.mark.parametrize("told", [("reported",), ("probed",), ("reported", "probed")])
def test_lies_are_survived(stand_in, function, told):
    for lie in LIES:
        stand_in.reset()
        stand_in.tell(text="text", message="text", **{name: lie for name in told})
        found = run(stand_in, function)
        assert harmless(found), (lie, found)
        stand_in.tell(code=-404)
        assert harmless(run(stand_in, function)), lie


# The stand-in writes no more of requests and messages than it keeps.
@pytest.mark.parametrize("function", [f for f in OUTPUTS if f["output"]["rule"] != "kept" and
                                      f["name"] != "GetErrorMsg"], ids=lambda f: f["name"])
def test_what_is_written_beyond_the_capacity_is_a_failure(stand_in, function):
    stand_in.tell(text="text", beyond=16)
    found = run(stand_in, function)
    assert isinstance(found, KestaError) and found.kind == "buffer"
    assert "wrote beyond" in found.message


@pytest.mark.parametrize("function", [f for f in OUTPUTS if f["output"]["rule"] == "probed"],
                         ids=lambda f: f["name"])
def test_probe_beyond_what_the_input_can_give_asks_for_no_gigabytes(stand_in, function):
    for lie in (0x04000001, 0x7FFFFFFF, 0xFFFFFFFF):
        stand_in.reset()
        stand_in.tell(probed=lie)
        found = run(stand_in, function)
        assert isinstance(found, KestaError) and str(lie) in found.message


def test_text_that_fills_its_capacity_is_given_whole(stand_in):
    for name, bound in (("get_label", 512), ("get_cert_dn", 1024)):
        stand_in.tell(text="a" * bound)
        arguments = ("SN",) if name == "get_label" else ("SN", 1, 2)
        assert getattr(stand_in.library, name)(*arguments) == "a" * bound


def test_plain_text_that_a_nul_cuts_short_is_a_failure(stand_in):
    stand_in.tell(text=b"plain\0text")
    with pytest.raises(KestaError) as failed:
        stand_in.library.asym_dec("SN", 3, 2, "cipher")
    assert failed.value.kind == "unsupported" and "10 bytes" in failed.value.message
    stand_in.tell(text="plain", reported=6)
    assert stand_in.library.asym_dec("SN", 3, 2, "cipher") == "plain"


def test_requests_count_although_the_code_is_another_threads(stand_in):
    stand_in.tell(text="R1||R2", fetchCode=0x5B71)
    assert stand_in.library.generate_cert_request("SN", "CertType(1)") == "R1||R2"
    stand_in.tell(fetchLost=1)
    with pytest.raises(KestaError) as failed:
        stand_in.library.generate_cert_request("SN", "CertType(1)")
    assert failed.value.code == -404


def test_endless_message_is_replaced(stand_in):
    stand_in.tell(code=5, message="m" * 100000)
    with pytest.raises(KestaError) as failed:
        stand_in.library.verify_pin("SN")
    assert "no text" in failed.value.message
