/*
 * kesta_unified_zrkukey: one flat C interface to a USB security key that holds SM2 key pairs and
 * X.509 certificates and is unlocked by a PIN.
 *
 * Valid as C11 and as C++: the functions, the exported variables, the result codes.
 *
 * Conventions. Each function's block states only what differs.
 *
 *  1. Results. Every function with a result returns a signed 32-bit code and stores the same code
 *     in G_LastError. 0 is success. The library's own codes are the enum below; every other value
 *     is the token library's, passed through unchanged. GetErrorMsg gives the text of any code.
 *  2. Texts are NUL-terminated 8-bit texts, handed to and from the token library as they are. The
 *     library neither checks nor converts their encoding.
 *  3. Lengths are 32-bit and count bytes. Whether a length counts the NUL is stated each time.
 *  4. Probe. A function with an output buffer and a pointer to its length answers a null buffer
 *     with 0 and the length needed, or with a fixed bound where its block says so. Call again with
 *     a buffer of that size. The length pointer holds the buffer's capacity on entry.
 *  5. Too small. A function that compares capacities answers -404, writes the length given in its
 *     block and leaves the buffer as it was. Some accept a capacity equal to the text's length and
 *     then write one byte more, the NUL: always offer the probed size, never less.
 *  6. NULL. A null pointer where the block says "required" gives -401 and nothing is forwarded.
 *     A pointer that is not called required is not checked. A null text goes to the token library
 *     as it is; a null length pointer is then a fault of the caller.
 *  7. Key serial number. szSN names the key, as GetPrintNumber reports it. The library passes it
 *     on and gives it no meaning of its own.
 *  8. Initialisation. Functions initialise the library while g_initFlag is 0, unless the block
 *     says that they never do. A failed initialisation is tried again by the next call of such a
 *     function; one that would have to ask the token meanwhile answers -101. What the process has
 *     loaded once stays good when its file is replaced or removed.
 *  9. Threads. Functions run on the caller's thread; there is no lock. Call one function at a
 *     time. WaitForKeyEvent alone is built to run beside others.
 * 10. Ownership. The library keeps no pointer of the caller's after a call returns, and hands none
 *     of its own out. All buffers are the caller's.
 * 11. Exceptions. No function raises one on purpose. Where memory runs out, or a text is malformed
 *     as a block says, a C++ exception may pass through; C callers cannot catch it.
 * 12. Log. Some functions write to /tmp/ValtoPinpad_KESTA.log: one record of two lines each, at
 *     the beginning and the end of the call. A block says so. A log that cannot be written is
 *     skipped in silence. Times are local, in the zone that TZ names at that moment. Records of
 *     the import functions hold the escrowed key's text without its commas (still sealed to the
 *     key); treat the file accordingly.
 */
#ifndef KESTA_UNIFIED_ZRKUKEY_H
#define KESTA_UNIFIED_ZRKUKEY_H

#ifdef __cplusplus
#include <map>
#include <string>
#else
#include <stdbool.h>
#endif

/* Marks what the library exports. */
#define KESTA_API __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif

/* Result codes that the library itself produces. */
enum {
    KESTA_OK = 0,
    KESTA_NOT_BOUND = -101,       /* the token library is missing or incomplete */
    KESTA_NOT_INITIALISED = -109, /* InitUKey before any initialisation */
    KESTA_UNSUPPORTED = -300,     /* a selector or an operation that is not supported */
    KESTA_BAD_ARGUMENT = -401,    /* a required argument is missing or out of range */
    KESTA_BUFFER_TOO_SMALL = -404 /* the output buffer is too small */
};

/* Kinds of event that WaitForKeyEvent reports. */
enum {
    KESTA_EVENT_ARRIVAL = 1, /* a key was inserted */
    KESTA_EVENT_REMOVAL = 2, /* a key was removed */
    KESTA_EVENT_STOPPED = 3  /* StopDetectUKey ended the wait */
};

/* The code of the latest operation, whichever thread it ran on. Initially 0. */
extern KESTA_API int G_LastError;

/*
 * 1 from a successful Initialize until Finalize, else 0. An Initialize that fails in between leaves
 * it at 1: functions then answer -101 and try nothing until Initialize succeeds. Read it with an
 * atomic load.
 */
extern KESTA_API bool g_initFlag;

/* ---- Frame and errors ------------------------------------------------------------------------ */

/*
 * Initialize: binds the token library.
 *   Loads it from the install directory and looks up its entry points. Calling it again binds it
 *   again; nothing is unloaded. When it fails, nothing is bound, whatever was bound before.
 * Codes: 0; -101 the library file or one of its entry points is missing, or the file is cut short.
 * Blocking: no. Log: no.
 */
KESTA_API int Initialize(void);

/*
 * Finalize: marks the library as not initialised and sets G_LastError to 0.
 *   The token library stays loaded and bound. The next function that initialises binds it again;
 *   InitUKey refuses until then, and SetCachePinFlag still reaches it. Never initialises.
 * Blocking: no. Log: no.
 */
KESTA_API void Finalize(void);

/*
 * GetLastErrCode: reports G_LastError, which stays as it is. Never initialises.
 *   pErrCode   receives the code, its bits as an unsigned value. NULL: G_LastError becomes -401.
 * Blocking: no. Log: no.
 */
KESTA_API void GetLastErrCode(unsigned int* pErrCode);

/*
 * GetErrorMsg: gives the message text of a result code, in the token library's language and
 * charset (SetLanguage, SetCharset).
 *   errCode      any result code.
 *   pszErrMsg    buffer for the text and its NUL. NULL: probe, answered with the fixed bound 200.
 *   pnErrMsgLen  required. In: capacity in bytes. Out: the text's length with the NUL.
 *   The capacity must exceed the text's length. Success and probe leave G_LastError alone, but
 *   for the initialisation of a first call, which sets it: ask GetLastErrCode first.
 * Codes: 0; -101; -401; -404 (writes the length with the NUL).
 * Blocking: no. Log: no.
 */
KESTA_API int GetErrorMsg(int errCode, char* pszErrMsg, int* pnErrMsgLen);

/* ---- Identity -------------------------------------------------------------------------------- */

/*
 * GetDriverVersion: the driver's version, a constant text of 13 characters.
 *   pszVersion    buffer of at least 13 bytes; no NUL is written. NULL: probe.
 *   pnVersionLen  not checked. Out: 13. The capacity is not compared.
 * Codes: 0.
 * Blocking: no. Log: the text and the end; no beginning.
 */
KESTA_API int GetDriverVersion(char* pszVersion, unsigned int* pnVersionLen);

/*
 * GetDllVersion: this library's version, a constant text of 13 characters.
 *   pszVersion    buffer of at least 13 bytes; no NUL is written. NULL: probe.
 *   pnVersionLen  not checked; read for the log. Out: 13. The capacity is not compared.
 * Codes: 0.
 * Blocking: no. Log: beginning, text, end.
 */
KESTA_API int GetDllVersion(char* pszVersion, unsigned int* pnVersionLen);

/*
 * GetVidAndPid: the key's USB vendor and product id as hexadecimal text, joined by "&": 9
 * characters.
 *   pszVidPid    buffer of at least 9 bytes; no NUL is written. NULL: probe.
 *   pnVidPidLen  not checked; read for the log. Out: 9. The capacity is not compared.
 * Codes: 0.
 * Blocking: no. Log: beginning, text, end.
 */
KESTA_API int GetVidAndPid(char* pszVidPid, unsigned int* pnVidPidLen);

/*
 * GetPrintNumber: the serial number of the key that is present; what other functions take as szSN.
 *   pszSN    buffer for the serial number, of at most 1024 bytes, and its NUL. NULL: probe; the
 *            token is asked. It must hold a terminated text before the call: on failure it is left
 *            as it was, and logged.
 *   pnSNLen  not checked; read for the log. Out: the length WITHOUT the NUL, also for a probe: add
 *            one for the buffer. Written after the text. The capacity is not compared. Not written
 *            on failure.
 * Codes: 0; -101; the token library's, for instance when no key is present.
 * Blocking: while the token answers. Log: beginning, serial number, end.
 */
KESTA_API int GetPrintNumber(char* pszSN, unsigned int* pnSNLen);

/*
 * GetVendorInfo: the maker's name, UTF-8.
 *   nLanguage    0 or 1: Chinese (33 bytes); 2: English (20 bytes).
 *   pszVendor    buffer for the name and its NUL; the capacity is not compared. NULL: probe.
 *   pnVendorLen  written for a probe alone: the length WITHOUT the NUL. Else neither read nor
 *                written. Not checked.
 * Codes: 0; -300 for another language.
 * Blocking: no. Log: no.
 */
KESTA_API int GetVendorInfo(int nLanguage, char* pszVendor, unsigned int* pnVendorLen);

/* ---- PIN and initialisation ------------------------------------------------------------------ */

/*
 * ChangePin: lets the user change the key's PIN; the token library asks for both PINs.
 *   szSN  names the key.
 * Codes: 0; -101; the token library's.
 * Blocking: until the user has answered. Log: beginning, serial number in hexadecimal, end.
 */
KESTA_API int ChangePin(const char* szSN);

/*
 * InitUKey: initialises the key, which loses what it holds. Never initialises the library.
 *   szSN  names the key.
 * Codes: 0; -109 the library is not initialised: call Initialize first. -109 is returned only:
 *   G_LastError stays as it was. -101; the token library's.
 * Blocking: until the user has answered. Log: beginning, serial number in hexadecimal, end; no end
 *   for -109.
 */
KESTA_API int InitUKey(const char* szSN);

/*
 * TestInitUKey: initialises the key with a parameter of the token library's.
 *   szSN    names the key.
 *   pParam  handed on as it is.
 * Codes: 0; -101; the token library's.
 * Blocking: until the user has answered. Log: beginning, end.
 */
KESTA_API int TestInitUKey(const char* szSN, void* pParam);

/*
 * VerifyPIN: lets the user unlock the key; the token library asks for the PIN.
 *   szSN  names the key.
 * Codes: 0; -101; the token library's.
 * Blocking: until the user has answered. Log: no.
 */
KESTA_API int VerifyPIN(const char* szSN);

/*
 * TestVerifyAndCachePin: as VerifyPIN, and the token library keeps the PIN for later operations.
 *   szSN    names the key.
 *   pParam  handed on as it is.
 * Codes: 0; -101; the token library's.
 * Blocking: until the user has answered. Log: no.
 */
KESTA_API int TestVerifyAndCachePin(const char* szSN, void* pParam);

/*
 * GetPinInfo: the PIN information record of 8 bytes; its layout is the token library's.
 *   szSN          names the key.
 *   pPinInfo      buffer of at least 8 bytes. NULL: probe, answered with 8 without asking.
 *   pnPinInfoLen  required. Handed on: the token library reads and writes it.
 * Codes: 0; -101; -401; the token library's.
 * Blocking: while the token answers. Log: no.
 */
KESTA_API int GetPinInfo(const char* szSN, void* pPinInfo, unsigned int* pnPinInfoLen);

/*
 * SetCachePinFlag: switches the token library's PIN caching. Never initialises the library: before
 * a first initialisation it answers -101.
 *   szSN   names the key.
 *   nFlag  handed on as it is.
 * Codes: 0; -101; the token library's.
 * Blocking: while the token answers. Log: no.
 */
KESTA_API int SetCachePinFlag(const char* szSN, int nFlag);

/*
 * RemovePinCache: makes the token library forget a cached PIN.
 * Codes: 0; -101; the token library's.
 * Blocking: while the token answers. Log: no.
 */
KESTA_API int RemovePinCache(void);

/* ---- Certificates ---------------------------------------------------------------------------- */

/*
 * GetCert: reads a certificate from the key, as text of at most 4096 bytes.
 *   szSN              required. Names the key.
 *   nParam1, nParam2  select the certificate; their meaning is the token library's.
 *   pszCert           buffer for the text and its NUL. NULL: probe; the token is asked.
 *   pnCertLen         required. Out for a probe: the length WITH the NUL; else WITHOUT it.
 *   A capacity equal to the length is accepted and one byte more, the NUL, is written. Never more
 *   than the capacity and that NUL is written. On a token failure nothing is written.
 * Codes: 0; -101; -401; -404 (writes the length WITHOUT the NUL); the token library's.
 * Blocking: while the token answers. Log: no.
 */
KESTA_API int GetCert(const char* szSN, unsigned int nParam1, unsigned int nParam2, char* pszCert,
                      unsigned int* pnCertLen);

/*
 * GetCertDN: reads a certificate's distinguished name, at most 1024 bytes.
 *   szSN              required. Names the key.
 *   nParam1, nParam2  select the certificate; their meaning is the token library's.
 *   pszDN             buffer for the text and its NUL. NULL: probe; the token is asked.
 *   pnDNLen           required. Out for a probe: the length WITH the NUL; else WITHOUT it.
 *   A capacity equal to the length is accepted and one byte more, the NUL, is written. On a token
 *   failure nothing is written.
 * Codes: 0; -101; -401; -404 (writes the length WITHOUT the NUL); the token library's.
 * Blocking: while the token answers. Log: no.
 */
KESTA_API int GetCertDN(const char* szSN, unsigned int nParam1, unsigned int nParam2, char* pszDN,
                        int* pnDNLen);

/*
 * GetCertInfo: reads a certificate's information block, at most 1280 bytes; its layout is the token
 * library's.
 *   szSN       names the key; not checked.
 *   nParam     selects the certificate; its meaning is the token library's.
 *   pInfo      buffer. NULL: probe, answered with the fixed bound 1280 without asking.
 *   pnInfoLen  required. Handed on: the token library reads and writes it.
 * Codes: 0; -101; -401; the token library's.
 * Blocking: while the token answers. Log: no.
 */
KESTA_API int GetCertInfo(const char* szSN, unsigned int nParam, void* pInfo,
                          unsigned int* pnInfoLen);

/*
 * DelCertAndTempKey: deletes a certificate and its temporary key from the key.
 *   szSN              names the key; not checked.
 *   nParam1, nParam2  select the certificate; their meaning is the token library's.
 * Codes: 0; -101; the token library's.
 * Blocking: while the token answers. Log: no.
 */
KESTA_API int DelCertAndTempKey(const char* szSN, unsigned int nParam1, unsigned int nParam2);

/*
 * RegisterCert: obsolete. Never initialises; leaves G_LastError alone.
 * Codes: -300.
 * Blocking: no. Log: no.
 */
KESTA_API int RegisterCert(void);

/*
 * UnregisterCert: obsolete. Never initialises; leaves G_LastError alone.
 * Codes: -300.
 * Blocking: no. Log: no.
 */
KESTA_API int UnregisterCert(void);

/*
 * RepairDriver: obsolete. Never initialises; leaves G_LastError alone.
 * Codes: -300.
 * Blocking: no. Log: no.
 */
KESTA_API int RepairDriver(void);

/* ---- Signing and decryption ------------------------------------------------------------------ */

/*
 * Sign: signs a text; the key shows a warning and waits for its button.
 *   szSN                 names the key; not checked.
 *   nOption1, nOption2   their meaning is the token library's.
 *   pszData              required. The text to sign.
 *   pszWarningMsg        required, also for a probe. The text that the key shows.
 *   pszSignature         buffer. NULL: probe, answered with twice the text's length plus 8192
 *                        without asking.
 *   pnSignatureLen       required. Handed on: the token library compares and writes it.
 * Codes: 0; -101; -401; the token library's. A failure to set the warning ends the call unsigned.
 * Blocking: until the button is pressed or refused. Log: no.
 */
KESTA_API int Sign(const char* szSN, int nOption1, int nOption2, const char* pszData,
                   const char* pszWarningMsg, char* pszSignature, unsigned int* pnSignatureLen);

/*
 * SignHash: signs a hash that the caller has computed.
 *   szSN                           names the key; NULL counts as an empty text.
 *   nOption1, nOption2, nOption3   their meaning is the token library's.
 *   pszHash                        required. The hash as text.
 *   pszSignature                   buffer for the signature and its NUL. NULL: probe, answered
 *                                  with twice the hash's length plus 8192 without asking.
 *   pnSignatureLen                 required. Handed on: the token library compares and writes it.
 *   The signature is copied as a text, its length is not compared: offer the probed size.
 * Codes: 0; -101; -401; the token library's.
 * Blocking: while the token answers. Log: no.
 */
KESTA_API int SignHash(const char* szSN, int nOption1, int nOption2, const char* pszHash,
                       int nOption3, char* pszSignature, unsigned int* pnSignatureLen);

/*
 * Batch_Sign: signs a list of texts in one call. All arguments are handed on in order.
 *   nFlags           bit 0 set: pParam2, pParam6 and pszData are required (not for a probe).
 *   pszData          text or NULL.
 *   pszDataList      texts joined by "||", or NULL.
 *   pParam2, pParam6, pParam7  their meaning is the token library's.
 *   nParam3, nParam4, nParam8, nParam9, nParam11  their meaning is the token library's.
 *   pszSignatures    buffer. NULL: probe, answered without asking: twice the sum of pszData's
 *                    length plus 2048 and, for each "||" in the list, the list's length plus 2048.
 *                    A list of one text adds nothing.
 *   pnSignaturesLen  required. Handed on: the token library compares and writes it.
 * Codes: 0; -101; -401; the token library's.
 * Blocking: until the button is pressed or refused. Log: no.
 */
KESTA_API int Batch_Sign(unsigned int nFlags, void* pParam2, int nParam3, int nParam4,
                         const char* pszData, void* pParam6, void* pParam7, int nParam8,
                         int nParam9, const char* pszDataList, int nParam11, char* pszSignatures,
                         unsigned int* pnSignaturesLen);

/*
 * AsymDec: decrypts with the key's private key.
 *   szSN                 names the key; NULL counts as an empty text.
 *   nOption1, nOption2   their meaning is the token library's.
 *   pszCipher            required. The cipher text; line breaks in it are dropped.
 *   pszPlain             buffer for the plain text and its NUL. NULL: probe, answered with twice
 *                        the cipher's length plus 8192 without asking.
 *   pnPlainLen           required. Out: the plain text's length as the token library reports it.
 *   A capacity equal to the length is accepted and one byte more, the NUL, is written. Never more
 *   than the capacity and that NUL is written. On a token failure nothing is written.
 * Codes: 0; -101; -401; -404 (writes the length); the token library's.
 * Blocking: while the token answers. Log: no.
 */
KESTA_API int AsymDec(const char* szSN, int nOption1, unsigned int nOption2, const char* pszCipher,
                      char* pszPlain, unsigned int* pnPlainLen);

/* ---- Labels, data objects, locale ------------------------------------------------------------ */

/*
 * GetLabel: reads the key's label, at most 512 bytes.
 *   szSN        required, not empty. Names the key.
 *   pszLabel    buffer for the label and its NUL. NULL: probe; the token is asked.
 *   pnLabelLen  required. Out for a probe: the length WITH the NUL; else WITHOUT it.
 *   A capacity equal to the length is accepted and one byte more, the NUL, is written. On a token
 *   failure nothing is written.
 * Codes: 0; -101; -401; -404 (writes the length WITHOUT the NUL); the token library's.
 * Blocking: while the token answers. Log: no.
 */
KESTA_API int GetLabel(const char* szSN, char* pszLabel, int* pnLabelLen);

/*
 * SetLabel: writes the key's label.
 *   szSN     required. Names the key.
 *   szLabel  required.
 * Codes: 0; -101; -401; the token library's.
 * Blocking: while the token answers. Log: no.
 */
KESTA_API int SetLabel(const char* szSN, const char* szLabel);

/*
 * SetData: stores a named data object on the key. GetData reads 260 bytes at most.
 *   szName   required, 10 to 16 characters.
 *   nParam   its meaning is the token library's.
 *   szValue  required, at most 300 characters.
 * Codes: 0; -101; -401; the token library's.
 * Blocking: while the token answers. Log: no.
 */
KESTA_API int SetData(const char* szName, unsigned int nParam, const char* szValue);

/*
 * GetData: reads a named data object, at most 260 bytes.
 *   szName      required, 10 to 16 characters.
 *   nParam      its meaning is the token library's.
 *   pszValue    buffer for the value and its NUL. NULL: probe; the token is asked.
 *   pnValueLen  required. Out for a probe: the length WITH the NUL; else WITHOUT it.
 *   A capacity equal to the length is accepted and one byte more, the NUL, is written. On a token
 *   failure nothing is written.
 * Codes: 0; -101; -401; -404 (writes the length WITH the NUL); the token library's.
 * Blocking: while the token answers. Log: no.
 */
KESTA_API int GetData(const char* szName, unsigned int nParam, char* pszValue, int* pnValueLen);

/*
 * SetCharset: chooses the charset of the token library's texts.
 *   pszArg1, pszArg2  required. Handed on in reverse order; which is the key and which the charset
 *                     is the token library's to say.
 * Codes: 0; -101; -401; the token library's.
 * Blocking: while the token answers. Log: no.
 */
KESTA_API int SetCharset(const char* pszArg1, const char* pszArg2);

/*
 * SetLanguage: chooses the language of the token library's texts.
 *   pszArg1, pszArg2  required. Handed on in reverse order; which is the key and which the language
 *                     is the token library's to say.
 * Codes: 0; -101; -401; the token library's.
 * Blocking: while the token answers. Log: no.
 */
KESTA_API int SetLanguage(const char* pszArg1, const char* pszArg2);

/* ---- Events ---------------------------------------------------------------------------------- */

/*
 * WaitForKeyEvent: waits until a key is inserted or removed, or StopDetectUKey ends the wait.
 *   pulEventType   not checked. Receives KESTA_EVENT_ARRIVAL, _REMOVAL or _STOPPED; an event of
 *                  another kind leaves it alone and gives an empty media id.
 *   pszMediaId     buffer of at least 17 bytes for the key's media id and its NUL. NULL: probe,
 *                  answered with the fixed bound 17 without waiting.
 *   pulMediaIdLen  not checked. Out: the media id's length WITHOUT the NUL.
 *   A removed key is named from a scan of the keys that were present when this wait began; one
 *   that was not among them is reported with an empty media id. A stopped wait writes the event
 *   kind alone, one that could not begin writes nothing. An arrived key whose media id cannot be
 *   read is reported with the token event library's code as result.
 *   One thread waits at a time; any other function may be called from other threads meanwhile. A
 *   thread cancelled while it waits unwinds.
 * Codes: 0; the token event library's.
 * Blocking: until an event or a stop; both are seen within about 20 milliseconds. Log: beginning,
 *   steps, end; no end when stopped.
 */
KESTA_API int WaitForKeyEvent(unsigned int* pulEventType, char* pszMediaId,
                              unsigned int* pulMediaIdLen);

/*
 * StopDetectUKey: ends the wait in progress on another thread.
 *   A stop is not remembered: one that comes before the wait has begun its loop is lost, so repeat
 *   it until the waiting thread has returned.
 * Codes: 0.
 * Blocking: no. Log: no.
 */
KESTA_API int StopDetectUKey(void);

/* ---- Enrolment ------------------------------------------------------------------------------- */

/*
 * GenerateCertRequest: verifies the user and makes one PKCS#10 request for each group of the
 * request information; several requests are joined by "||".
 *   szSN         required. Names the key.
 *   requestInfo  required. Groups separated by "|"; a group is a run of CertType(n), KeyType(n)
 *                and HashType(n), n one character. Names match in any case, blanks around them are
 *                ignored. A value that a group does not name carries over from the group before;
 *                it begins as 0. The numbers' meaning is the token library's.
 *   szP10        buffer for the text and its NUL. NULL: probe; the requests are made and kept.
 *   pnP10Len     required. Out for a probe: the length WITH the NUL; else WITHOUT it.
 *   A call with a buffer and the same szSN and requestInfo as the latest probe gets the probed
 *   text without asking the token, and uses it up. With other arguments, or without a probe, new
 *   requests are made; a probed text is forgotten first, also when the call then fails. A probe
 *   that fails keeps it. A capacity equal to the length is accepted and one byte more, the NUL, is
 *   written. Request information without any group makes no request and gives an empty text.
 * Codes: 0; -101; -401 (a required pointer, or an unknown name; requests made for the groups before
 *   are lost); -404 (writes the length WITH the NUL and keeps the probed text; for newly made
 *   requests, the length WITHOUT it, and they are lost); the token library's. A group whose last
 *   name is known and has no "(" behind it raises a C++ exception.
 * Blocking: until the user has answered, once for each group. Log: no.
 */
KESTA_API int GenerateCertRequest(const char* szSN, const char* requestInfo, char* szP10,
                                  int* pnP10Len);

/*
 * Batch_InitAndGenerateCertRequest: optionally initialises the key, then makes up to three
 * requests, where an SM2 signing request and its encryption companion become one.
 *   szSN         names the key; NULL is handed on, and counts as an empty text elsewhere.
 *   initFlag     0: verify the user once, before the first record's request. 1: initialise the key
 *                first, also for a probe.
 *   requestInfo  required. As for GenerateCertRequest, at most three groups. CertType 3 demands
 *                KeyType 2. Of two groups with KeyType 2, exactly one with CertType 3, the second
 *                is folded into the first one's record; every other group makes its own. A record
 *                without a positive CertType and KeyType is skipped. Where that is the first one,
 *                the user is not verified and the text begins with "||".
 *   szP10        buffer for the text and its NUL. NULL: probe; the requests are made and kept.
 *   pnP10Len     required. As for GenerateCertRequest, with which the probed text is shared:
 *                initFlag does not tell probes apart. Answered from a probe, the call returns the
 *                G_LastError that it found.
 * Codes: 0; -101; -401 (a required pointer, an unknown name, a fourth group, CertType 3 without
 *   KeyType 2, another initFlag); -404 (as for GenerateCertRequest); the token library's. A group
 *   raises a C++ exception as for GenerateCertRequest.
 * Blocking: until the user has answered. Log: beginning.
 */
KESTA_API int Batch_InitAndGenerateCertRequest(const char* szSN, int initFlag,
                                               const char* requestInfo, char* szP10, int* pnP10Len);

/* ---- Installation of certificates ------------------------------------------------------------ */

/*
 * ImportX509Cert: writes one certificate into the key. Forgets a probed request.
 *   szSN   required. Names the key.
 *   strP7  required. The certificate as text; commas and line breaks in it are dropped.
 * Codes: 0; -101; -401; the token library's.
 * Blocking: while the token answers. Log: no.
 */
KESTA_API int ImportX509Cert(const char* szSN, const char* strP7);

/*
 * ImportEncX509Cert: imports an escrowed encryption key, then writes its certificate. Forgets a
 * probed request.
 *   szSN       required. Names the key.
 *   strP7      required. The certificate as text; commas in it are dropped, line breaks stay.
 *   strPriKey  required. The key text, optionally behind its header of 80 digits; commas in it are
 *              dropped. Where the header occurs anywhere in the text, the text's first 80
 *              characters are dropped, wherever it stands. What is left must not exceed 1024
 *              characters: a longer one ends the process.
 *   A failed key import leaves the certificate unwritten; a failed certificate leaves the key
 *   imported.
 * Codes: 0; -101; -401; the token library's.
 * Blocking: while the token answers. Log: the key text without its commas.
 */
KESTA_API int ImportEncX509Cert(const char* szSN, const char* strP7, const char* strPriKey);

/*
 * Batch_ImportX509Cert: imports a bundle: signing certificates, then escrowed keys, then encryption
 * certificates. Keeps a probed request.
 *   szSN   names the key; not checked; NULL counts as an empty text.
 *   strP7  required. Sections SignCert(...), EncPriKey(...), EncCert(...) separated by "|", or one
 *          certificate: a text without "(" or one that begins with it. Commas and line breaks are
 *          dropped. Another name before a "(" that follows the beginning or a "|" is an error. A
 *          name in other case is none, yet its section is not imported, and what stands behind the
 *          last section is not looked at. Keys follow the rules of ImportEncX509Cert.
 *   The first failure ends the import; what was written before it stays.
 * Codes: 0; -101; -401 (a required pointer, an unknown name, nothing imported); the token
 *   library's.
 * Blocking: while the token answers. Log: beginning with the bundle, each key text, failures; for
 *   one certificate the end.
 */
KESTA_API int Batch_ImportX509Cert(const char* szSN, const char* strP7);

/* ---- Installation check ---------------------------------------------------------------------- */

/*
 * CheckDriverIntegrity: asks whether the install directory can be listed.
 *   nMode  1. The files in the directory are not compared with any list.
 * Codes: 0; -300 for another mode or an absent directory.
 * Blocking: no. Log: no.
 */
KESTA_API int CheckDriverIntegrity(int nMode);

#ifdef __cplusplus
}

/*
 * Slot id to media id of the keys that were present when the latest wait began, and an empty text
 * for the slot of a removed key that was not among them. Written by WaitForKeyEvent alone; not to
 * be read while it runs.
 */
extern "C" KESTA_API std::map<unsigned int, std::string> g_WaitEventSlotMap;
#endif

#endif
