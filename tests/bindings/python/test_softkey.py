"""Enrolment, signature, decryption and events against the software key, and all that goes wrong."""

import json
import os
import pathlib
import signal
import subprocess
import sys
import threading
import time

import pytest

from conftest import BUILD, DESCRIPTION, eventually, softkey
from kesta_ukey import (Cancelled, CertType, KestaError, Kind, NoKey, NotFound, PinLocked, PinWrong,
                        Refused, Removed, RequestGroup, Timeout, bundle)
from test_operations import NAMES, extremes

LOG = pathlib.Path("/tmp/ValtoPinpad_KESTA.log")
GROUPS = [RequestGroup(CertType.SIGNING), RequestGroup(CertType.ENCRYPTION)]


class Authority:
    """A certificate authority in a folder."""

    def __init__(self, folder):
        self._folder = str(folder)
        self("new")

    def __call__(self, command, *arguments):
        return subprocess.run(
            [os.environ["KESTA_AUTHORITY"], command, self._folder, *arguments], check=True,
            capture_output=True, text=True,
            env=dict(os.environ, KESTA_SOFTKEY=str(BUILD / "bin/softkey"))).stdout.strip()

    def verifies(self, certificate, text, signature):
        try:
            self("verify", certificate, text, signature)
        except subprocess.CalledProcessError:
            return False
        return True


@pytest.fixture
def authority(tmp_path):
    return Authority(tmp_path / "authority")


@pytest.fixture
def key(library):
    with library.present_key() as present:
        yield present


@pytest.fixture
def enrolled(key, authority):
    signing, encryption = key.generate_cert_request(GROUPS)
    certificate, envelope = authority("escrow", encryption).splitlines()
    key.batch_import_x509_cert(
        bundle([authority("issue", signing)], [envelope], [certificate]))
    return key


def plan(*rules):
    subprocess.run([BUILD / "bin/softkey", "misbehave", "-"], check=True, text=True,
                   input=json.dumps({"rules": rules}), stdout=subprocess.DEVNULL)


def test_enrolment_signature_and_decryption(enrolled, authority):
    certificate = enrolled.get_cert(CertType.SIGNING)
    assert "CN" in enrolled.get_cert_dn(CertType.SIGNING)
    assert b"algorithm=SM2" in enrolled.get_cert_info(CertType.SIGNING)
    signature = enrolled.sign("转账 12.50", "Pay 12.50?")
    assert authority.verifies(certificate, "转账 12.50", signature)
    assert not authority.verifies(certificate, "转账 12.51", signature)
    batch = enrolled.batch_sign(["a", "b", "c"], "Sign three?")
    assert [authority.verifies(certificate, text, signed)
            for text, signed in zip("abd", batch)] == [True, True, False]
    cipher = authority("encrypt", enrolled.get_cert(CertType.ENCRYPTION), "a letter, 信")
    assert enrolled.asym_dec(cipher) == "a letter, 信"


def test_installation_one_by_one(key, authority):
    signing, encryption = key.generate_cert_request(GROUPS)
    key.import_x509_cert(authority("issue", signing))
    certificate, envelope = authority("escrow", encryption).splitlines()
    key.import_enc_x509_cert(certificate, envelope)
    assert key.get_cert(CertType.ENCRYPTION) == certificate
    key.del_cert_and_temp_key(CertType.ENCRYPTION)
    with pytest.raises(NotFound):
        key.get_cert(CertType.ENCRYPTION)


def test_label_data_and_versions(library, key):
    key.set_label("二楼 accounts")
    assert key.get_label() == "二楼 accounts"
    library.set_data("branch-code", 2, "0417")
    assert library.get_data("branch-code", 2) == "0417"
    assert library.get_dll_version() == library.get_driver_version() == "9.2025.0731.3"
    assert library.get_vid_and_pid() == "2E5A&0301"
    library.check_driver_integrity(1)


def test_pin_is_wrong_locked_and_cancelled(key, monkeypatch):
    monkeypatch.setenv("KESTA_SOFTKEY_PIN", "000000")
    for left in (5, 4, 3, 2, 1):
        with pytest.raises(PinWrong):
            key.verify_pin()
        assert key.pin_tries() == (left, 6, False)
    with pytest.raises((PinWrong, PinLocked)):
        key.verify_pin()
    assert key.pin_tries() == (0, 6, True)
    with pytest.raises(PinLocked) as locked:
        key.verify_pin()
    assert locked.value.message == "the PIN is locked"
    monkeypatch.setenv("KESTA_SOFTKEY_PIN", "135790")
    softkey("unlock")
    key.verify_pin()
    monkeypatch.delenv("KESTA_SOFTKEY_PIN")
    monkeypatch.setenv("PATH", "/nowhere")
    with pytest.raises(Cancelled):
        key.change_pin()


def test_end_of_a_with_block_forgets_the_pin(library, monkeypatch):
    with library.present_key() as key:
        key.test_verify_and_cache_pin()
        monkeypatch.setenv("KESTA_SOFTKEY_PIN", "000000")
        key.verify_pin()
    with pytest.raises(PinWrong):
        library.key(key.serial).verify_pin()


def test_button_is_refused_or_not_pressed_in_time(enrolled, monkeypatch):
    softkey("button", "refuse")
    with pytest.raises(Refused):
        enrolled.sign("a", "b")
    softkey("button", "ask")
    monkeypatch.setenv("KESTA_SOFTKEY_BUTTON_MS", "50")
    with pytest.raises(Timeout):
        enrolled.sign("a", "b")


def test_reads_of_other_threads_answer_while_the_button_is_asked(enrolled):
    softkey("button", "ask")
    signed = []
    thread = threading.Thread(target=lambda: signed.append(enrolled.sign("a", "Button?")))
    thread.start()
    assert eventually(lambda: "Button?" in softkey("screen"))
    assert enrolled.library.get_dll_version() == "9.2025.0731.3"
    assert not signed
    softkey("button", "press")
    thread.join()
    assert len(signed) == 1


def test_key_that_is_pulled_out_is_told_as_such(enrolled):
    plan({"entry": "GMUsbKeyCommonSign", "call": 1, "remove": "during"})
    with pytest.raises(Removed):
        enrolled.sign_hash("00" * 32)
    with pytest.raises(NoKey):
        enrolled.get_label()
    softkey("insert")
    assert enrolled.get_label()


@pytest.mark.parametrize("entry", ["GetCertInfo", "GMUsbKeyCriticalSign", "GMUsbKeyCommonSign",
                                   "GMUSBKeyAsymDec2", "Batch_Sign", "GetPinInfo",
                                   "GetCertInfo_UOS"])
def test_lengths_that_lie_are_survived(enrolled, authority, entry):
    cipher = authority("encrypt", enrolled.get_cert(CertType.ENCRYPTION), "a letter")
    for length in (0, 1, 5000, 70000, 2147483647, 4294967295):
        plan({"entry": entry, "length": length})
        for use in (lambda: enrolled.get_cert(CertType.SIGNING), lambda: enrolled.sign("a", "b"),
                    lambda: enrolled.sign_hash("00" * 32), lambda: enrolled.asym_dec(cipher),
                    lambda: enrolled.batch_sign(["a"], "w"), enrolled.pin_tries,
                    lambda: enrolled.get_cert_info(CertType.SIGNING)):
            try:
                use()
            except KestaError as error:
                assert error.message
    softkey("misbehave", "--clear")
    assert enrolled.asym_dec(cipher) == "a letter"


def test_every_operation_survives_a_key_that_fails_everywhere(library, key):
    plan(*({"entry": entry, "code": "KeyRemoved"} for entry in (
        "CheckDeviceEx", "GetLabel", "SetLabel", "GetCertInfo", "GMUsbKeyCriticalSign", "VerifyPIN",
        "GMCreatePKCS10", "GetPinInfo", "SetData", "GetData", "ChangePin", "CustInitCard")))
    for function in DESCRIPTION:
        if function["name"] in ("WaitForKeyEvent", "Batch_Sign"):
            continue  # the one waits; the other takes pointers whose meaning is the token's
        values = ["SK0001" if value == "a0" else value for value in extremes(function)[0]]
        try:
            getattr(library, NAMES[function["name"]])(*values)
        except KestaError as error:
            assert error.kind != Kind.OK and error.message
    softkey("misbehave", "--clear")
    assert key.get_label()


def test_events_of_the_software_key(library):
    seen = []
    with library.events() as events:
        # An event is seen by who waits already; the log tells when that is.
        assert eventually(lambda: "[after]" in LOG.read_text(errors="replace") if LOG.exists()
                          else False)
        softkey("remove")
        seen.append(next(events))
        softkey("insert")
        seen.append(next(events))
    assert [(event.kind, event.media_id) for event in seen] == \
        [("removal", "MEDIA-1"), ("arrival", "MEDIA-1")]


PROGRAM = """
import signal, sys, time
signal.signal(signal.SIGINT, signal.default_int_handler)  # a shell's background job ignores it
sys.path[:0] = {path!r}
from kesta_ukey import Library
key = Library.load({library!r}).present_key()
print("ready", flush=True)
try:
    key.sign("a", "Button?")
except KeyboardInterrupt:
    print(time.monotonic(), flush=True)
"""


def test_ctrl_c_is_effective_while_the_button_is_asked(enrolled):
    softkey("button", "ask")
    delays = []
    for _ in range(5):
        program = subprocess.Popen(
            [sys.executable, "-c", PROGRAM.format(
                path=sys.path, library=str(BUILD / "lib/libkesta_unified_zrkukey.so"))],
            stdout=subprocess.PIPE, text=True)
        assert program.stdout.readline() == "ready\n"
        assert eventually(lambda: "Button?" in softkey("screen"))
        sent = time.monotonic()
        program.send_signal(signal.SIGINT)
        delays.append(float(program.stdout.read()) - sent)
        assert program.wait() == 0
        if delays[-1] < 0.1:
            break
    assert min(delays) < 0.1
