"""The texts that the library takes and gives, and the numbers that select things."""

from enum import IntEnum
from typing import Iterable, List, NamedTuple, Union

from . import _checks as checks
from ._codes import BAD_ARGUMENT, failure, say


class CertType(IntEnum):
    """The usual numbers of certificate types. Where one is taken, a maker's other number is too."""

    ANY = 0
    SIGNING = 1
    ENCRYPTION = 3


class KeyType(IntEnum):
    """The usual numbers of key types."""

    ANY = 0
    RSA = 1
    SM2 = 2


class HashType(IntEnum):
    """The usual numbers of hash types; USUAL is the key type's own."""

    USUAL = 0
    SHA1 = 1
    SHA256 = 2
    SM3 = 3


class HashForm(IntEnum):
    """How a hash is written that is to be signed."""

    ANY = 0
    HEXADECIMAL = 1
    BASE64 = 2


class RequestGroup(NamedTuple):
    """One certificate request."""

    cert_type: int
    key_type: int = KeyType.SM2
    hash_type: int = HashType.SM3


def request_info(groups: "Iterable[Union[RequestGroup, tuple[int, int, int]]]") -> str:
    """The request information of generate_cert_request."""
    texts = []
    for group in groups:
        text = ""
        for name, value in zip(("CertType", "KeyType", "HashType"), group):
            if not 0 <= value <= 9:
                raise failure(BAD_ARGUMENT, "RequestInfo", say("OneDigit", name, int(value)))
            text += f"{name}({int(value)})"
        texts.append(text)
    return "|".join(texts)


def bundle(signing_certificates: Iterable[str] = (), encryption_keys: Iterable[str] = (),
           encryption_certificates: Iterable[str] = ()) -> str:
    """What a certificate authority returned, for batch_import_x509_cert."""
    sections = []
    for name, contents in (("SignCert", signing_certificates),
                           ("EncCert", encryption_certificates), ("EncPriKey", encryption_keys)):
        for content in contents:
            if "|" in content or ")" in content:
                raise failure(BAD_ARGUMENT, "Bundle", say("SectionCharacter", name))
            sections.append(f"{name}({content})")
    return "|".join(sections)


def join_list(texts: List[str]) -> str:
    """A list for batch_sign."""
    reason = checks.items(texts)
    if reason:
        raise failure(BAD_ARGUMENT, "Batch_Sign", reason)
    return "||".join(texts)


def split_list(text: str) -> List[str]:
    """The parts of a text that is joined by "||". Empty ones are left out: a batch request whose
    first record is skipped begins with a separator."""
    return [part for part in text.split("||") if part]
