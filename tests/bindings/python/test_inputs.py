"""Inputs that are refused before the library sees them, and their neighbours that are not."""

import json
import os
import pathlib

import pytest

from kesta_ukey import (BadArgument, CertType, HashType, Key, KeyType, RequestGroup, bundle,
                        request_info, split_list)
from kesta_ukey._codes import LIMITS

CASES = json.loads(pathlib.Path(os.environ["KESTA_INPUTS"]).read_text(encoding="utf-8"))


def text_of(case):
    header = LIMITS["keyHeader"] if case.get("header") else ""
    return header + case.get("before", "") + "A" * case["repeat"] + case.get("behind", "")


def judge(refused, stand_in, operation, *arguments):
    stand_in.reset()
    if refused:
        with pytest.raises(BadArgument):
            operation(*arguments)
        assert not stand_in.calls
    else:
        operation(*arguments)
        assert stand_in.calls


@pytest.mark.parametrize("case", CASES["keyText"])
def test_key_texts(stand_in, case):
    judge(case["refused"], stand_in, stand_in.library.import_enc_x509_cert, "SN", "c", text_of(case))


@pytest.mark.parametrize("case", CASES["bundle"])
def test_bundles(stand_in, case):
    judge(case["refused"], stand_in, stand_in.library.batch_import_x509_cert, "SN", text_of(case))


@pytest.mark.parametrize("case", CASES["requestInfo"])
def test_request_information(stand_in, case):
    judge(case["refused"], stand_in, stand_in.library.generate_cert_request, "SN", case["text"])
    judge(case["refused"], stand_in, stand_in.library.batch_init_and_generate_cert_request, "SN", 0,
          case["text"])


@pytest.mark.parametrize("case", CASES["list"])
def test_lists(stand_in, case):
    judge(case["refused"], stand_in, Key(stand_in.library, "SN").batch_sign, case["texts"])


def test_bundles_and_request_information_are_written():
    assert bundle(["S"], ["K"], ["E"]) == "SignCert(S)|EncCert(E)|EncPriKey(K)"
    groups = [RequestGroup(CertType.SIGNING), (3, KeyType.SM2, HashType.SM3)]
    assert request_info(groups) == \
        "CertType(1)KeyType(2)HashType(3)|CertType(3)KeyType(2)HashType(3)"
    assert split_list("||a||b") == ["a", "b"]
    for refused in (lambda: bundle(["a)"]), lambda: request_info([(10, 2, 3)])):
        with pytest.raises(BadArgument):
            refused()


def test_keys_hand_their_serial_number_on(stand_in):
    key = stand_in.library.key("SN")
    stand_in.tell(text="x")
    key.batch_sign(["a", "b", "c"], "warning")
    assert stand_in.calls[-1] == "Batch_Sign 1 pointer 2 0 a pointer NULL 0 0 b||c 2 12306"
    key.sign("data", "warning", KeyType.SM2, HashType.SM3)
    assert stand_in.calls[-1] == "Sign SN 2 3 data warning"
    key.get_cert_dn(CertType.SIGNING, 7)
    assert stand_in.calls[-1] == "GetCertDN SN 1 7"
    key.asym_dec("cipher")
    assert stand_in.calls[-1] == "AsymDec SN 3 2 cipher"
    key.set_charset("UTF-8")
    assert stand_in.calls[-1] == "SetCharset UTF-8 SN"


