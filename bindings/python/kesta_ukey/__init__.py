"""A USB security key with SM2 keys, through the library kesta_unified_zrkukey.

    from kesta_ukey import Library, PinWrong

    with Library.load().present_key() as key:
        key.verify_pin()
        signature = key.sign("pay 12.50", "Pay 12.50?")

Library has the library's functions under their names, Key what one key does. Failures are
KestaError, with an exception for each kind. docs/python.md tells more.
"""

from ._caller import Event, Pointer
from ._codes import Codes, PinRecord, Tries, speak
from ._error import KestaError, code_text
from ._events import Events
from ._kinds import *  # noqa: F401,F403
from ._kinds import Kind
from ._library import Groups, Key, Library, events
from ._texts import (CertType, HashForm, HashType, KeyType, RequestGroup, bundle, join_list,
                     request_info, split_list)

__version__ = "9.2025.731.3"
