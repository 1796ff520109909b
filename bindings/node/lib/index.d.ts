import {AsyncOperations, KeyEvent, Kind, Options, Pointer, SyncOperations} from './operations';

export {KeyEvent, Kind, Options, Pointer};

/** A failure. message is one sentence. */
export class KestaError extends Error {
    readonly code: number;
    readonly kind: Kind;
    /** The name of the library's function, or "Load". */
    readonly operation: string;
}

/** The library's codes in decimal, the token library's in hexadecimal. */
export function codeText(code: number): string;

/** The language of the package's own sentences. */
export function speak(language: 'en' | 'zh'): void;

/** Where a token library's PIN record holds the numbers. */
export interface PinRecord {
    length: number;
    triesLeft: number;
    triesMost: number;
    locked: number;
}

/** How often a wrong PIN may still be entered. */
export interface Tries {
    left: number;
    most: number;
    locked: boolean;
}

/** The table that tells the kind of a code. */
export class Codes {
    constructor(rows: Array<[first: number, last: number, kind: Kind]>, pinRecord?: PinRecord);
    readonly rows: Array<[first: number, last: number, kind: Kind]>;
    readonly pinRecord?: PinRecord;
    static softkey(): Codes;
    static read(file: string): Codes;
    static inUse(): Codes;
    use(): void;
    kindOf(code: number): Kind;
    tries(record: Uint8Array): Tries | undefined;
}

/** The usual numbers. Where one is taken, a maker's other number is too. */
export const CertType: {readonly any: 0, readonly signing: 1, readonly encryption: 3};
export const KeyType: {readonly any: 0, readonly rsa: 1, readonly sm2: 2};
export const HashType: {readonly usual: 0, readonly sha1: 1, readonly sha256: 2, readonly sm3: 3};
export const HashForm: {readonly any: 0, readonly hexadecimal: 1, readonly base64: 2};

export interface RequestGroup {
    certType: number;
    keyType?: number;
    hashType?: number;
}

export function requestInfo(groups: RequestGroup[]): string;
export function bundle(contents: {
    signingCertificates?: string[];
    encryptionKeys?: string[];
    encryptionCertificates?: string[];
}): string;
export function joinList(texts: string[]): string;
export function splitList(text: string): string[];

/** Keys that come and go, until return() or the signal. */
export interface Events extends AsyncIterableIterator<KeyEvent> {
    return(value?: unknown): Promise<IteratorResult<KeyEvent>>;
}

/** The loaded library. One thread of a process uses it. */
export interface Library extends AsyncOperations {}
export class Library {
    private constructor();
    /** The library file at the path, or by name where the system looks for libraries. */
    static load(path?: string): Library;
    /** The encoding of texts that are given out; what is taken in is UTF-8. */
    encoding: string;
    readonly sync: SyncOperations;
    /** Operations that wait no longer than this for their turn, in milliseconds. */
    within(patience: number): Library;
    events(options?: Options): Events;
    key(serial: string): Key;
    presentKey(options?: Options): Promise<Key>;
}

export function events(library?: Library, options?: Options): Events;

export interface SignChoices extends Options {
    keyType?: number;
    hashType?: number;
}

/** One key, bound to its serial number. */
export class Key {
    constructor(library: Library, serial: string);
    readonly library: Library;
    readonly serial: string;
    /** Forgets the PIN, which the token library does for all keys of the process. */
    close(): Promise<void>;
    changePin(options?: Options): Promise<void>;
    initUkey(options?: Options): Promise<void>;
    testInitUkey(param?: Pointer, options?: Options): Promise<void>;
    verifyPin(options?: Options): Promise<void>;
    testVerifyAndCachePin(param?: Pointer, options?: Options): Promise<void>;
    getPinInfo(options?: Options): Promise<Uint8Array>;
    /** Undefined where the layout of the record is not known. */
    pinTries(options?: Options): Promise<Tries | undefined>;
    setCachePinFlag(caching: boolean, options?: Options): Promise<void>;
    getCert(certType: number, keyType?: number, options?: Options): Promise<string>;
    getCertDn(certType: number, keyType?: number, options?: Options): Promise<string>;
    getCertInfo(certType: number, options?: Options): Promise<Uint8Array>;
    delCertAndTempKey(certType: number, keyType?: number, options?: Options): Promise<void>;
    sign(data: string, warning: string, choices?: SignChoices): Promise<string>;
    signHash(digest: string, choices?: SignChoices & {form?: number}): Promise<string>;
    /** With a warning one press of the button stands for all texts; without one the key does not ask. */
    batchSign(texts: string[], warning?: string,
        choices?: SignChoices & {moreFlags?: number}): Promise<string[]>;
    asymDec(cipher: string, choices?: Options & {certType?: number, keyType?: number}): Promise<string>;
    getLabel(options?: Options): Promise<string>;
    setLabel(label: string, options?: Options): Promise<void>;
    setCharset(name: string, options?: Options): Promise<void>;
    setLanguage(name: string, options?: Options): Promise<void>;
    generateCertRequest(groups: RequestGroup[], options?: Options): Promise<string[]>;
    batchInitAndGenerateCertRequest(initialise: boolean, groups: RequestGroup[],
        options?: Options): Promise<string[]>;
    importX509Cert(certificate: string, options?: Options): Promise<void>;
    importEncX509Cert(certificate: string, keyText: string, options?: Options): Promise<void>;
    batchImportX509Cert(text: string, options?: Options): Promise<void>;
}
