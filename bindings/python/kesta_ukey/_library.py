"""The library, and one key of it."""

from typing import Any, Iterable, List, Optional, Tuple, Union

from ._caller import FILE_NAME, Event, Functions, Pointer
from ._codes import BAD_ARGUMENT, Codes, Tries, failure, say
from ._error import KestaError
from ._events import Events, wait_interruptibly
from ._operations import Operations
from ._texts import (CertType, HashForm, HashType, KeyType, RequestGroup, join_list, request_info,
                     split_list)

Groups = Iterable[Union[RequestGroup, Tuple[int, int, int]]]


class Library(Operations):
    """The loaded library. Its operations may be called from any thread."""

    @classmethod
    def load(cls, path: Optional[str] = None) -> "Library":
        """The library file at the path, or by name where the system looks for libraries."""
        return cls(Functions(path or FILE_NAME))

    def within(self, seconds: float) -> "Library":
        """The same library, whose operations wait no longer than this for their turn and raise
        Busy then. It does not shorten an operation itself."""
        return Library(self._f, max(0, seconds), self.encoding)

    def events(self) -> Events:
        """Keys that come and go, from now on. Raises Busy while there is another wait."""
        return Events(self, self._f)

    def key(self, serial: str) -> "Key":
        """The key with this serial number."""
        return Key(self, serial)

    def present_key(self) -> "Key":
        """The key that is present."""
        return Key(self, self.get_print_number())

    def _wait(self) -> Event:
        return wait_interruptibly(self, self._f)


class Key:
    """One key, bound to its serial number. At the end of a with block its PIN is forgotten, which
    the token library does for all keys of the process."""

    def __init__(self, library: Library, serial: str) -> None:
        self.library = library
        self.serial = serial

    def __enter__(self) -> "Key":
        return self

    def __exit__(self, *_: Any) -> None:
        try:
            self.library.remove_pin_cache()
        except KestaError:
            pass  # it was pulled out, and has forgotten by itself

    # ---- PIN and initialisation

    def change_pin(self) -> None:
        """Lets the user change the PIN."""
        self.library.change_pin(self.serial)

    def init_ukey(self) -> None:
        """Initialises the key, which loses what it holds."""
        self.library.init_ukey(self.serial)

    def test_init_ukey(self, param: Pointer = None) -> None:
        """Initialises the key with a parameter of the token library's."""
        self.library.test_init_ukey(self.serial, param)

    def verify_pin(self) -> None:
        """Lets the user unlock the key."""
        self.library.verify_pin(self.serial)

    def test_verify_and_cache_pin(self, param: Pointer = None) -> None:
        """The same, and the token library keeps the PIN."""
        self.library.test_verify_and_cache_pin(self.serial, param)

    def get_pin_info(self) -> bytes:
        """The PIN record; its layout is the token library's."""
        return self.library.get_pin_info(self.serial)

    def pin_tries(self) -> Optional[Tries]:
        """The tries left, where the layout of the record is known."""
        return Codes.in_use().tries(self.get_pin_info())

    def set_cache_pin_flag(self, caching: bool) -> None:
        """Switches the token library's PIN caching."""
        self.library.set_cache_pin_flag(self.serial, int(caching))

    # ---- Certificates

    def get_cert(self, cert_type: int, key_type: int = KeyType.SM2) -> str:
        """A certificate, as text."""
        return self.library.get_cert(self.serial, cert_type, key_type)

    def get_cert_dn(self, cert_type: int, key_type: int = KeyType.SM2) -> str:
        """A certificate's distinguished name."""
        return self.library.get_cert_dn(self.serial, cert_type, key_type)

    def get_cert_info(self, cert_type: int) -> bytes:
        """A certificate's information block; its layout is the token library's."""
        return self.library.get_cert_info(self.serial, cert_type)

    def del_cert_and_temp_key(self, cert_type: int, key_type: int = KeyType.SM2) -> None:
        """Deletes a certificate and its temporary key."""
        self.library.del_cert_and_temp_key(self.serial, cert_type, key_type)

    # ---- Signing and decryption

    def sign(self, data: str, warning: str, key_type: int = KeyType.SM2,
             hash_type: int = HashType.USUAL) -> str:
        """Signs a text; the key shows the warning and waits for its button."""
        return self.library.sign(self.serial, key_type, hash_type, data, warning)

    def sign_hash(self, digest: str, key_type: int = KeyType.SM2,
                  hash_type: int = HashType.USUAL, form: int = HashForm.ANY) -> str:
        """Signs a hash that was computed elsewhere."""
        return self.library.sign_hash(self.serial, key_type, hash_type, digest, form)

    def batch_sign(self, texts: List[str], warning: str = "", key_type: int = KeyType.SM2,
                   hash_type: int = HashType.USUAL, more_flags: int = 0) -> List[str]:
        """Signs several texts. With a warning the key shows it once, and one press of its button
        stands for all; without one the key does not ask. more_flags are a maker's own."""
        if not texts:
            raise failure(BAD_ARGUMENT, "Batch_Sign", say("EmptyBatch"))
        # The call wants the first text beside the list.
        listed = join_list(texts[1:]) or None
        return split_list(self.library.batch_sign(
            more_flags | int(bool(warning)), self.serial, key_type, hash_type, texts[0], warning,
            None, 0, 0, listed, len(texts) - 1))

    def asym_dec(self, cipher: str, cert_type: int = CertType.ENCRYPTION,
                 key_type: int = KeyType.SM2) -> str:
        """Decrypts with the key's private key."""
        return self.library.asym_dec(self.serial, cert_type, key_type, cipher)

    # ---- Label and locale

    def get_label(self) -> str:
        """The key's label."""
        return self.library.get_label(self.serial)

    def set_label(self, label: str) -> None:
        """Writes the key's label."""
        self.library.set_label(self.serial, label)

    def set_charset(self, name: str) -> None:
        """The charset of the token library's texts; library.encoding is to follow it."""
        self.library.set_charset(name, self.serial)

    def set_language(self, name: str) -> None:
        """The language of the token library's texts."""
        self.library.set_language(name, self.serial)

    # ---- Enrolment and installation

    def generate_cert_request(self, groups: Groups) -> List[str]:
        """Makes a request for each group."""
        return split_list(self.library.generate_cert_request(self.serial, request_info(groups)))

    def batch_init_and_generate_cert_request(self, initialise: bool, groups: Groups) -> List[str]:
        """Optionally initialises the key, then makes up to three requests."""
        return split_list(self.library.batch_init_and_generate_cert_request(
            self.serial, int(initialise), request_info(groups)))

    def import_x509_cert(self, certificate: str) -> None:
        """Writes one certificate into the key."""
        self.library.import_x509_cert(self.serial, certificate)

    def import_enc_x509_cert(self, certificate: str, key_text: str) -> None:
        """Imports an escrowed encryption key, then writes its certificate."""
        self.library.import_enc_x509_cert(self.serial, certificate, key_text)

    def batch_import_x509_cert(self, text: str) -> None:
        """Imports a bundle: see bundle()."""
        self.library.batch_import_x509_cert(self.serial, text)


def events(library: Optional[Library] = None) -> Events:
    """Keys that come and go, from now on: `async for event in events()`."""
    return (library or Library.load()).events()
