"""The library's functions under their names in Python, in the order of the header."""
# Made by bindings/generate from include/kesta_unified_zrkukey.h.

from ctypes import c_int, c_uint
from typing import Optional

from . import _checks as checks
from ._caller import Caller, Event, Pointer, int32, uint32


class Operations(Caller):
    """Arguments in the order of C, without buffers and lengths: results are returned."""

    def initialize(self) -> None:
        """Binds the token library."""
        self._run("Initialize", self._f.Initialize)

    def finalize(self) -> None:
        """Marks the library as not initialised and sets G_LastError to 0."""
        self._f.Finalize()

    def get_last_err_code(self) -> int:
        """Reports G_LastError, which stays as it is."""
        return self._last_code()

    def get_error_msg(self, err_code: int) -> str:
        """Gives the message text of a result code, in the token library's language and charset
        (SetLanguage, SetCharset).

        err_code: any result code.
        """
        return self._bounded(
            "GetErrorMsg", self._f.GetErrorMsg, 4096, c_int, int32("GetErrorMsg", err_code))

    def get_driver_version(self) -> str:
        """The driver's version, a constant text of 13 characters."""
        return self._bounded_beside("GetDriverVersion", self._f.GetDriverVersion, 64, c_uint)

    def get_dll_version(self) -> str:
        """This library's version, a constant text of 13 characters."""
        return self._bounded_beside("GetDllVersion", self._f.GetDllVersion, 64, c_uint)

    def get_vid_and_pid(self) -> str:
        """The key's USB vendor and product id as hexadecimal text, joined by "&": 9 characters."""
        return self._bounded_beside("GetVidAndPid", self._f.GetVidAndPid, 64, c_uint)

    def get_print_number(self) -> str:
        """The serial number of the key that is present; what other functions take as szSN."""
        return self._bounded("GetPrintNumber", self._f.GetPrintNumber, 1024, c_uint)

    def get_vendor_info(self, language: int) -> str:
        """The maker's name, UTF-8.

        language: 0 or 1: Chinese (33 bytes); 2: English (20 bytes).
        """
        return self._bounded_beside(
            "GetVendorInfo", self._f.GetVendorInfo, 256, c_uint, int32("GetVendorInfo", language))

    def change_pin(self, serial: Optional[str]) -> None:
        """Lets the user change the key's PIN; the token library asks for both PINs.

        serial: names the key.
        """
        self._ask("ChangePin", self._f.ChangePin, self._text("ChangePin", serial))

    def init_ukey(self, serial: Optional[str]) -> None:
        """Initialises the key, which loses what it holds.

        serial: names the key.
        """
        self._initialise()
        self._ask("InitUKey", self._f.InitUKey, self._text("InitUKey", serial))

    def test_init_ukey(self, serial: Optional[str], param: Pointer = None) -> None:
        """Initialises the key with a parameter of the token library's.

        serial: names the key.
        param: handed on as it is.
        """
        self._ask(
            "TestInitUKey", self._f.TestInitUKey, self._text("TestInitUKey", serial),
            self._pointer("TestInitUKey", param))

    def verify_pin(self, serial: Optional[str]) -> None:
        """Lets the user unlock the key; the token library asks for the PIN.

        serial: names the key.
        """
        self._ask("VerifyPIN", self._f.VerifyPIN, self._text("VerifyPIN", serial))

    def test_verify_and_cache_pin(self, serial: Optional[str], param: Pointer = None) -> None:
        """As VerifyPIN, and the token library keeps the PIN for later operations.

        serial: names the key.
        param: handed on as it is.
        """
        self._ask(
            "TestVerifyAndCachePin", self._f.TestVerifyAndCachePin,
            self._text("TestVerifyAndCachePin", serial),
            self._pointer("TestVerifyAndCachePin", param))

    def get_pin_info(self, serial: Optional[str]) -> bytes:
        """The PIN information record of 8 bytes; its layout is the token library's.

        serial: names the key.
        """
        return self._record(
            "GetPinInfo", self._f.GetPinInfo, 8, c_uint, self._text("GetPinInfo", serial))

    def set_cache_pin_flag(self, serial: Optional[str], flag: int) -> None:
        """Switches the token library's PIN caching.

        serial: names the key.
        flag: handed on as it is.
        """
        self._initialise()
        self._run(
            "SetCachePinFlag", self._f.SetCachePinFlag, self._text("SetCachePinFlag", serial),
            int32("SetCachePinFlag", flag))

    def remove_pin_cache(self) -> None:
        """Makes the token library forget a cached PIN."""
        self._run("RemovePinCache", self._f.RemovePinCache)

    def get_cert(self, serial: str, param1: int, param2: int) -> str:
        """Reads a certificate from the key, as text of at most 4096 bytes.

        serial: required. Names the key.
        param1: select the certificate; their meaning is the token library's.
        param2: select the certificate; their meaning is the token library's.
        """
        return self._bounded(
            "GetCert", self._f.GetCert, 4096, c_uint, self._text("GetCert", serial),
            uint32("GetCert", param1), uint32("GetCert", param2))

    def get_cert_dn(self, serial: str, param1: int, param2: int) -> str:
        """Reads a certificate's distinguished name, at most 1024 bytes.

        serial: required. Names the key.
        param1: select the certificate; their meaning is the token library's.
        param2: select the certificate; their meaning is the token library's.
        """
        return self._bounded(
            "GetCertDN", self._f.GetCertDN, 1024, c_int, self._text("GetCertDN", serial),
            uint32("GetCertDN", param1), uint32("GetCertDN", param2))

    def get_cert_info(self, serial: Optional[str], param: int) -> bytes:
        """Reads a certificate's information block, at most 1280 bytes; its layout is the token
        library's.

        serial: names the key; not checked.
        param: selects the certificate; its meaning is the token library's.
        """
        return self._record(
            "GetCertInfo", self._f.GetCertInfo, 1280, c_uint, self._text("GetCertInfo", serial),
            uint32("GetCertInfo", param))

    def del_cert_and_temp_key(self, serial: Optional[str], param1: int, param2: int) -> None:
        """Deletes a certificate and its temporary key from the key.

        serial: names the key; not checked.
        param1: select the certificate; their meaning is the token library's.
        param2: select the certificate; their meaning is the token library's.
        """
        self._ask(
            "DelCertAndTempKey", self._f.DelCertAndTempKey,
            self._text("DelCertAndTempKey", serial), uint32("DelCertAndTempKey", param1),
            uint32("DelCertAndTempKey", param2))

    def register_cert(self) -> None:
        """Obsolete."""
        self._beside("RegisterCert", self._f.RegisterCert)

    def unregister_cert(self) -> None:
        """Obsolete."""
        self._beside("UnregisterCert", self._f.UnregisterCert)

    def repair_driver(self) -> None:
        """Obsolete."""
        self._beside("RepairDriver", self._f.RepairDriver)

    def sign(self, serial: Optional[str], option1: int, option2: int, data: str,
             warning_msg: str) -> str:
        """Signs a text; the key shows a warning and waits for its button.

        serial: names the key; not checked.
        option1: their meaning is the token library's.
        option2: their meaning is the token library's.
        data: required. The text to sign.
        warning_msg: required, also for a probe. The text that the key shows.
        """
        return self._probed(
            "Sign", self._f.Sign, data, self._text("Sign", serial), int32("Sign", option1),
            int32("Sign", option2), self._text("Sign", data), self._text("Sign", warning_msg))

    def sign_hash(self, serial: Optional[str], option1: int, option2: int, hash: str,
                  option3: int) -> str:
        """Signs a hash that the caller has computed.

        serial: names the key; NULL counts as an empty text.
        option1: their meaning is the token library's.
        option2: their meaning is the token library's.
        hash: required. The hash as text.
        option3: their meaning is the token library's.
        """
        return self._probed(
            "SignHash", self._f.SignHash, hash, self._text("SignHash", serial),
            int32("SignHash", option1), int32("SignHash", option2), self._text("SignHash", hash),
            int32("SignHash", option3))

    def batch_sign(self, flags: int, param2: Pointer, param3: int, param4: int, data: Optional[str],
                   param6: Pointer, param7: Pointer, param8: int, param9: int,
                   data_list: Optional[str], param11: int) -> str:
        """Signs a list of texts in one call.

        flags: bit 0 set: pParam2, pParam6 and pszData are required (not for a probe).
        param2: their meaning is the token library's.
        param3: their meaning is the token library's.
        param4: their meaning is the token library's.
        data: text or NULL.
        param6: their meaning is the token library's.
        param7: their meaning is the token library's.
        param8: their meaning is the token library's.
        param9: their meaning is the token library's.
        data_list: texts joined by "||", or NULL.
        param11: their meaning is the token library's.
        """
        return self._batch(
            "Batch_Sign", self._f.Batch_Sign, data, data_list, uint32("Batch_Sign", flags),
            self._pointer("Batch_Sign", param2), int32("Batch_Sign", param3),
            int32("Batch_Sign", param4), self._text("Batch_Sign", data),
            self._pointer("Batch_Sign", param6), self._pointer("Batch_Sign", param7),
            int32("Batch_Sign", param8), int32("Batch_Sign", param9),
            self._text("Batch_Sign", data_list), int32("Batch_Sign", param11))

    def asym_dec(self, serial: Optional[str], option1: int, option2: int, cipher: str) -> str:
        """Decrypts with the key's private key.

        serial: names the key; NULL counts as an empty text.
        option1: their meaning is the token library's.
        option2: their meaning is the token library's.
        cipher: required. The cipher text; line breaks in it are dropped.
        """
        return self._probed_whole(
            "AsymDec", self._f.AsymDec, cipher, self._text("AsymDec", serial),
            int32("AsymDec", option1), uint32("AsymDec", option2), self._text("AsymDec", cipher))

    def get_label(self, serial: str) -> str:
        """Reads the key's label, at most 512 bytes.

        serial: required, not empty. Names the key.
        """
        return self._bounded(
            "GetLabel", self._f.GetLabel, 512, c_int, self._text("GetLabel", serial))

    def set_label(self, serial: str, label: str) -> None:
        """Writes the key's label.

        serial: required. Names the key.
        label: required.
        """
        self._run(
            "SetLabel", self._f.SetLabel, self._text("SetLabel", serial),
            self._text("SetLabel", label))

    def set_data(self, name: str, param: int, value: str) -> None:
        """Stores a named data object on the key.

        name: required, 10 to 16 characters.
        param: its meaning is the token library's.
        value: required, at most 300 characters.
        """
        self._run(
            "SetData", self._f.SetData, self._text("SetData", name), uint32("SetData", param),
            self._text("SetData", value))

    def get_data(self, name: str, param: int) -> str:
        """Reads a named data object, at most 260 bytes.

        name: required, 10 to 16 characters.
        param: its meaning is the token library's.
        """
        return self._bounded(
            "GetData", self._f.GetData, 260, c_int, self._text("GetData", name),
            uint32("GetData", param))

    def set_charset(self, arg1: str, arg2: str) -> None:
        """Chooses the charset of the token library's texts.

        arg1: required. Handed on in reverse order; which is the key and which the charset is
            the token library's to say.
        arg2: required. Handed on in reverse order; which is the key and which the charset is
            the token library's to say.
        """
        self._run(
            "SetCharset", self._f.SetCharset, self._text("SetCharset", arg1),
            self._text("SetCharset", arg2))

    def set_language(self, arg1: str, arg2: str) -> None:
        """Chooses the language of the token library's texts.

        arg1: required. Handed on in reverse order; which is the key and which the language is
            the token library's to say.
        arg2: required. Handed on in reverse order; which is the key and which the language is
            the token library's to say.
        """
        self._run(
            "SetLanguage", self._f.SetLanguage, self._text("SetLanguage", arg1),
            self._text("SetLanguage", arg2))

    def wait_for_key_event(self) -> Event:
        """Waits until a key is inserted or removed, or StopDetectUKey ends the wait."""
        return self._wait()

    def stop_detect_ukey(self) -> None:
        """Ends the wait in progress on another thread."""
        self._beside("StopDetectUKey", self._f.StopDetectUKey)

    def generate_cert_request(self, serial: str, request_info: str) -> str:
        """Verifies the user and makes one PKCS#10 request for each group of the request
        information; several requests are joined by "||".

        serial: required. Names the key.
        request_info: required. Groups separated by "|"; a group is a run of CertType(n),
            KeyType(n) and HashType(n), n one character. Names match in any case, blanks around
            them are ignored. A value that a group does not name carries over from the group
            before; it begins as 0. The numbers' meaning is the token library's.
        """
        self._refuse_if("GenerateCertRequest", checks.request_info(request_info))
        return self._kept(
            "GenerateCertRequest", self._f.GenerateCertRequest,
            self._text("GenerateCertRequest", serial),
            self._text("GenerateCertRequest", request_info))

    def batch_init_and_generate_cert_request(self, serial: Optional[str], init_flag: int,
                                             request_info: str) -> str:
        """Optionally initialises the key, then makes up to three requests, where an SM2 signing
        request and its encryption companion become one.

        serial: names the key; NULL is handed on, and counts as an empty text elsewhere.
        init_flag: 0: verify the user once, before the first record's request. 1: initialise the
            key first, also for a probe.
        request_info: required. As for GenerateCertRequest, at most three groups. CertType 3
            demands KeyType 2. Of two groups with KeyType 2, exactly one with CertType 3, the
            second is folded into the first one's record; every other group makes its own. A
            record without a positive CertType and KeyType is skipped. Where that is the first
            one, the user is not verified and the text begins with "||".
        """
        self._refuse_if("Batch_InitAndGenerateCertRequest", checks.request_info(request_info))
        return self._kept(
            "Batch_InitAndGenerateCertRequest", self._f.Batch_InitAndGenerateCertRequest,
            self._text("Batch_InitAndGenerateCertRequest", serial),
            int32("Batch_InitAndGenerateCertRequest", init_flag),
            self._text("Batch_InitAndGenerateCertRequest", request_info))

    def import_x509_cert(self, serial: str, p7: str) -> None:
        """Writes one certificate into the key.

        serial: required. Names the key.
        p7: required. The certificate as text; commas and line breaks in it are dropped.
        """
        self._run(
            "ImportX509Cert", self._f.ImportX509Cert, self._text("ImportX509Cert", serial),
            self._text("ImportX509Cert", p7))

    def import_enc_x509_cert(self, serial: str, p7: str, pri_key: str) -> None:
        """Imports an escrowed encryption key, then writes its certificate.

        serial: required. Names the key.
        p7: required. The certificate as text; commas in it are dropped, line breaks stay.
        pri_key: required. The key text, optionally behind its header of 80 digits; commas in it
            are dropped. Where the header occurs anywhere in the text, the text's first 80
            characters are dropped, wherever it stands. What is left must not exceed 1024
            characters: a longer one ends the process.
        """
        self._refuse_if("ImportEncX509Cert", checks.key_text(pri_key))
        self._ask(
            "ImportEncX509Cert", self._f.ImportEncX509Cert,
            self._text("ImportEncX509Cert", serial), self._text("ImportEncX509Cert", p7),
            self._text("ImportEncX509Cert", pri_key))

    def batch_import_x509_cert(self, serial: Optional[str], p7: str) -> None:
        """Imports a bundle: signing certificates, then escrowed keys, then encryption
        certificates.

        serial: names the key; not checked; NULL counts as an empty text.
        p7: required. Sections SignCert(...), EncPriKey(...), EncCert(...) separated by "|", or
            one certificate: a text without "(" or one that begins with it. Commas and line
            breaks are dropped. Another name before a "(" that follows the beginning or a "|" is
            an error. A name in other case is none, yet its section is not imported, and what
            stands behind the last section is not looked at. Keys follow the rules of
            ImportEncX509Cert.
        """
        self._refuse_if("Batch_ImportX509Cert", checks.bundle(p7))
        self._ask(
            "Batch_ImportX509Cert", self._f.Batch_ImportX509Cert,
            self._text("Batch_ImportX509Cert", serial), self._text("Batch_ImportX509Cert", p7))

    def check_driver_integrity(self, mode: int) -> None:
        """Asks whether the install directory can be listed.

        mode: 1. The files in the directory are not compared with any list.
        """
        self._beside(
            "CheckDriverIntegrity", self._f.CheckDriverIntegrity,
            int32("CheckDriverIntegrity", mode))
