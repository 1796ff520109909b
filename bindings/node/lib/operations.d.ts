// Made by bindings/generate from include/kesta_unified_zrkukey.h.

/** What went wrong, whatever the token library's numbers are. */
export type Kind =
    'ok' |
    'no-key' |
    'several-keys' |
    'removed' |
    'pin-wrong' |
    'pin-locked' |
    'pin-required' |
    'pin-unfit' |
    'cancelled' |
    'refused' |
    'timeout' |
    'not-found' |
    'mismatch' |
    'malformed' |
    'too-long' |
    'busy' |
    'damaged' |
    'full' |
    'unsupported' |
    'bad-argument' |
    'buffer' |
    'not-loaded' |
    'failed' |
    'unknown';

/** A text or bytes are handed on as a copy, a Uint8Array itself. */
export type Pointer = string | Uint8Array | null;

/** A key came or went. */
export interface KeyEvent {
    kind: 'arrival' | 'removal' | 'stopped' | 'other';
    /** Empty when the key that left was not there when the wait began. */
    mediaId: string;
    /** Of an arrived key that could not be read; else 0. */
    code: number;
}

/** Ends the waiting for an operation's answer; see docs/node.md. */
export interface Options {
    signal?: AbortSignal;
}

/** The library's functions under their names, off the main thread. Arguments in the order of C. */
export interface AsyncOperations {
    /** Binds the token library. */
    initialize(options?: Options): Promise<void>;
    /** Marks the library as not initialised and sets G_LastError to 0. */
    finalize(options?: Options): Promise<void>;
    /** Reports G_LastError, which stays as it is. */
    getLastErrCode(options?: Options): Promise<number>;
    /** Gives the message text of a result code, in the token library's language and charset (SetLanguage, SetCharset). */
    getErrorMsg(errCode: number, options?: Options): Promise<string>;
    /** The driver's version, a constant text of 13 characters. */
    getDriverVersion(options?: Options): Promise<string>;
    /** This library's version, a constant text of 13 characters. */
    getDllVersion(options?: Options): Promise<string>;
    /** The key's USB vendor and product id as hexadecimal text, joined by "&": 9 characters. */
    getVidAndPid(options?: Options): Promise<string>;
    /** The serial number of the key that is present; what other functions take as szSN. */
    getPrintNumber(options?: Options): Promise<string>;
    /** The maker's name, UTF-8. */
    getVendorInfo(language: number, options?: Options): Promise<string>;
    /** Lets the user change the key's PIN; the token library asks for both PINs. */
    changePin(serial: string | null, options?: Options): Promise<void>;
    /** Initialises the key, which loses what it holds. */
    initUkey(serial: string | null, options?: Options): Promise<void>;
    /** Initialises the key with a parameter of the token library's. */
    testInitUkey(serial: string | null, param?: Pointer, options?: Options): Promise<void>;
    /** Lets the user unlock the key; the token library asks for the PIN. */
    verifyPin(serial: string | null, options?: Options): Promise<void>;
    /** As VerifyPIN, and the token library keeps the PIN for later operations. */
    testVerifyAndCachePin(serial: string | null, param?: Pointer, options?: Options):
        Promise<void>;
    /** The PIN information record of 8 bytes; its layout is the token library's. */
    getPinInfo(serial: string | null, options?: Options): Promise<Uint8Array>;
    /** Switches the token library's PIN caching. */
    setCachePinFlag(serial: string | null, flag: number, options?: Options): Promise<void>;
    /** Makes the token library forget a cached PIN. */
    removePinCache(options?: Options): Promise<void>;
    /** Reads a certificate from the key, as text of at most 4096 bytes. */
    getCert(serial: string, param1: number, param2: number, options?: Options): Promise<string>;
    /** Reads a certificate's distinguished name, at most 1024 bytes. */
    getCertDn(serial: string, param1: number, param2: number, options?: Options):
        Promise<string>;
    /** Reads a certificate's information block, at most 1280 bytes; its layout is the token library's. */
    getCertInfo(serial: string | null, param: number, options?: Options): Promise<Uint8Array>;
    /** Deletes a certificate and its temporary key from the key. */
    delCertAndTempKey(serial: string | null, param1: number, param2: number, options?: Options):
        Promise<void>;
    /** Obsolete. */
    registerCert(options?: Options): Promise<void>;
    /** Obsolete. */
    unregisterCert(options?: Options): Promise<void>;
    /** Obsolete. */
    repairDriver(options?: Options): Promise<void>;
    /** Signs a text; the key shows a warning and waits for its button. */
    sign(serial: string | null, option1: number, option2: number, data: string, warningMsg:
        string, options?: Options): Promise<string>;
    /** Signs a hash that the caller has computed. */
    signHash(serial: string | null, option1: number, option2: number, hash: string, option3:
        number, options?: Options): Promise<string>;
    /** Signs a list of texts in one call. */
    batchSign(flags: number, param2: Pointer, param3: number, param4: number, data: string |
        null, param6: Pointer, param7: Pointer, param8: number, param9: number, dataList: string
        | null, param11: number, options?: Options): Promise<string>;
    /** Decrypts with the key's private key. */
    asymDec(serial: string | null, option1: number, option2: number, cipher: string, options?:
        Options): Promise<string>;
    /** Reads the key's label, at most 512 bytes. */
    getLabel(serial: string, options?: Options): Promise<string>;
    /** Writes the key's label. */
    setLabel(serial: string, label: string, options?: Options): Promise<void>;
    /** Stores a named data object on the key. */
    setData(name: string, param: number, value: string, options?: Options): Promise<void>;
    /** Reads a named data object, at most 260 bytes. */
    getData(name: string, param: number, options?: Options): Promise<string>;
    /** Chooses the charset of the token library's texts. */
    setCharset(arg1: string, arg2: string, options?: Options): Promise<void>;
    /** Chooses the language of the token library's texts. */
    setLanguage(arg1: string, arg2: string, options?: Options): Promise<void>;
    /** Waits until a key is inserted or removed, or StopDetectUKey ends the wait. */
    waitForKeyEvent(options?: Options): Promise<KeyEvent>;
    /** Ends the wait in progress on another thread. */
    stopDetectUkey(options?: Options): Promise<void>;
    /** Verifies the user and makes one PKCS#10 request for each group of the request information; several requests are joined by "||". */
    generateCertRequest(serial: string, requestInfo: string, options?: Options):
        Promise<string>;
    /** Optionally initialises the key, then makes up to three requests, where an SM2 signing request and its encryption companion become one. */
    batchInitAndGenerateCertRequest(serial: string | null, initFlag: number, requestInfo:
        string, options?: Options): Promise<string>;
    /** Writes one certificate into the key. */
    importX509Cert(serial: string, p7: string, options?: Options): Promise<void>;
    /** Imports an escrowed encryption key, then writes its certificate. */
    importEncX509Cert(serial: string, p7: string, priKey: string, options?: Options):
        Promise<void>;
    /** Imports a bundle: signing certificates, then escrowed keys, then encryption certificates. */
    batchImportX509Cert(serial: string | null, p7: string, options?: Options): Promise<void>;
    /** Asks whether the install directory can be listed. */
    checkDriverIntegrity(mode: number, options?: Options): Promise<void>;
}

/** The same on the calling thread, for worker threads and commands: they hold up the event loop. */
export interface SyncOperations {
    /** Binds the token library. */
    initialize(): void;
    /** Marks the library as not initialised and sets G_LastError to 0. */
    finalize(): void;
    /** Reports G_LastError, which stays as it is. */
    getLastErrCode(): number;
    /** Gives the message text of a result code, in the token library's language and charset (SetLanguage, SetCharset). */
    getErrorMsg(errCode: number): string;
    /** The driver's version, a constant text of 13 characters. */
    getDriverVersion(): string;
    /** This library's version, a constant text of 13 characters. */
    getDllVersion(): string;
    /** The key's USB vendor and product id as hexadecimal text, joined by "&": 9 characters. */
    getVidAndPid(): string;
    /** The serial number of the key that is present; what other functions take as szSN. */
    getPrintNumber(): string;
    /** The maker's name, UTF-8. */
    getVendorInfo(language: number): string;
    /** Lets the user change the key's PIN; the token library asks for both PINs. */
    changePin(serial: string | null): void;
    /** Initialises the key, which loses what it holds. */
    initUkey(serial: string | null): void;
    /** Initialises the key with a parameter of the token library's. */
    testInitUkey(serial: string | null, param?: Pointer): void;
    /** Lets the user unlock the key; the token library asks for the PIN. */
    verifyPin(serial: string | null): void;
    /** As VerifyPIN, and the token library keeps the PIN for later operations. */
    testVerifyAndCachePin(serial: string | null, param?: Pointer): void;
    /** The PIN information record of 8 bytes; its layout is the token library's. */
    getPinInfo(serial: string | null): Uint8Array;
    /** Switches the token library's PIN caching. */
    setCachePinFlag(serial: string | null, flag: number): void;
    /** Makes the token library forget a cached PIN. */
    removePinCache(): void;
    /** Reads a certificate from the key, as text of at most 4096 bytes. */
    getCert(serial: string, param1: number, param2: number): string;
    /** Reads a certificate's distinguished name, at most 1024 bytes. */
    getCertDn(serial: string, param1: number, param2: number): string;
    /** Reads a certificate's information block, at most 1280 bytes; its layout is the token library's. */
    getCertInfo(serial: string | null, param: number): Uint8Array;
    /** Deletes a certificate and its temporary key from the key. */
    delCertAndTempKey(serial: string | null, param1: number, param2: number): void;
    /** Obsolete. */
    registerCert(): void;
    /** Obsolete. */
    unregisterCert(): void;
    /** Obsolete. */
    repairDriver(): void;
    /** Signs a text; the key shows a warning and waits for its button. */
    sign(serial: string | null, option1: number, option2: number, data: string, warningMsg:
        string): string;
    /** Signs a hash that the caller has computed. */
    signHash(serial: string | null, option1: number, option2: number, hash: string, option3:
        number): string;
    /** Signs a list of texts in one call. */
    batchSign(flags: number, param2: Pointer, param3: number, param4: number, data: string |
        null, param6: Pointer, param7: Pointer, param8: number, param9: number, dataList: string
        | null, param11: number): string;
    /** Decrypts with the key's private key. */
    asymDec(serial: string | null, option1: number, option2: number, cipher: string): string;
    /** Reads the key's label, at most 512 bytes. */
    getLabel(serial: string): string;
    /** Writes the key's label. */
    setLabel(serial: string, label: string): void;
    /** Stores a named data object on the key. */
    setData(name: string, param: number, value: string): void;
    /** Reads a named data object, at most 260 bytes. */
    getData(name: string, param: number): string;
    /** Chooses the charset of the token library's texts. */
    setCharset(arg1: string, arg2: string): void;
    /** Chooses the language of the token library's texts. */
    setLanguage(arg1: string, arg2: string): void;
    /** Ends the wait in progress on another thread. */
    stopDetectUkey(): void;
    /** Verifies the user and makes one PKCS#10 request for each group of the request information; several requests are joined by "||". */
    generateCertRequest(serial: string, requestInfo: string): string;
    /** Optionally initialises the key, then makes up to three requests, where an SM2 signing request and its encryption companion become one. */
    batchInitAndGenerateCertRequest(serial: string | null, initFlag: number, requestInfo:
        string): string;
    /** Writes one certificate into the key. */
    importX509Cert(serial: string, p7: string): void;
    /** Imports an escrowed encryption key, then writes its certificate. */
    importEncX509Cert(serial: string, p7: string, priKey: string): void;
    /** Imports a bundle: signing certificates, then escrowed keys, then encryption certificates. */
    batchImportX509Cert(serial: string | null, p7: string): void;
    /** Asks whether the install directory can be listed. */
    checkDriverIntegrity(mode: number): void;
}
