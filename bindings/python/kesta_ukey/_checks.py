"""Inputs that the library must not be given: they would end the process, raise a C++ exception, or
reach the token as something else than was meant. A check answers the reason, or nothing."""

from typing import List, Optional

from ._codes import LIMITS, say

_HEADER: str = LIMITS["keyHeader"]
_KEY_BUFFER: int = LIMITS["keyBuffer"]
_BLANKS = " \t\n\v\f\r"


def key_text(text: str) -> Optional[str]:
    """What the library would copy into its key buffer; a longer text ends the process."""
    clean = text.replace(",", "")
    size = len(clean.encode("utf-8", "surrogateescape"))
    body = size - (len(_HEADER) if _HEADER in clean else 0)
    return None if body <= _KEY_BUFFER else say("KeyTooLong", body, _KEY_BUFFER)


def bundle(text: str) -> Optional[str]:
    """The same for each key text of a bundle, found in it as the library finds it."""
    opener = "EncPriKey("
    clean = text.replace(",", "").replace("\r", "").replace("\n", "")
    if clean.find("(") < 1:
        return None  # one certificate
    at = clean.find(opener)
    while at >= 0:
        end = clean.find(")", at)
        if end < 0:
            return None
        reason = key_text(clean[at + len(opener):end])
        if reason:
            return reason
        at = clean.find(opener, end + 2)
    return None


def _skip(text: str, character: str, at: int) -> int:
    while at < len(text) and text[at] == character:
        at += 1
    return at


def _ends_after_name(group: str) -> bool:
    at = 0
    while True:
        at = _skip(group, "(", at)
        if at == len(group):
            return False
        opening = group.find("(", at)
        name = group[at:] if opening < 0 else group[at:opening]
        if name.strip(_BLANKS).upper() not in ("CERTTYPE", "KEYTYPE", "HASHTYPE"):
            return False
        if opening < 0:
            return True
        at = _skip(group, ")", opening + 1)
        if at == len(group):
            return False
        at = group.find(")", at)
        if at < 0:
            return False
        at += 1


def request_info(text: str) -> Optional[str]:
    """A group that ends right after a name raises an exception inside the library."""
    return say("GroupEndsAfterName") if any(map(_ends_after_name, text.split("|"))) else None


def items(texts: List[str]) -> Optional[str]:
    """Texts of a list that is joined by "||"."""
    for text in texts:
        if not text:
            return say("EmptyItem")
        if "||" in text or text[0] == "|" or text[-1] == "|":
            return say("ItemSeparator")
    return None
