// The contract with the token library, libKestaZRK.so: its entry points and the records that
// cross. The library binds them by name, the software key defines them, and the tests' stand-ins
// record them. Every text is NUL-terminated 8-bit text unless a size is given.
//
// All entry points return a 32-bit result code, 0 on success, except X_ErrorConvert_UOS.
#ifndef KESTA_TOKEN_LIBRARY_H
#define KESTA_TOKEN_LIBRARY_H

#include <cstddef>
#include <cstdint>

#include "kesta/device_record.h"

// One certificate request of GMCreatePKCS10Ex.
struct KestaRequestRecord {
    std::int64_t certType;
    std::int64_t keyType;
    std::int64_t hashType;
    std::uint8_t paired;  // 1: a companion request is folded into this record
    std::uint8_t reserved[7];
};

static_assert(sizeof(KestaRequestRecord) == 32, "the request record is 32 bytes");
static_assert(offsetof(KestaRequestRecord, certType) == 0, "certType stands at byte 0");
static_assert(offsetof(KestaRequestRecord, keyType) == 8, "keyType stands at byte 8");
static_assert(offsetof(KestaRequestRecord, hashType) == 16, "hashType stands at byte 16");
static_assert(offsetof(KestaRequestRecord, paired) == 24, "the paired flag stands at byte 24");
static_assert(offsetof(KestaRequestRecord, reserved) == 25, "seven reserved bytes close it");

// The string that GMWritePKCS7 receives by reference, as a peer sees it: one pointer to the first
// character. A KestaStringHeader stands directly in front of the characters.
struct KestaStringObject {
    char* characters;
};

// The header in front of a string's characters. manager points to an object whose first word is
// the address of its table of operations: destructor, deleting destructor,
// Allocate(int chars, int charSize), Free(header), Reallocate(header, int chars, int charSize),
// GetNilBuffer(), Clone(). A peer that replaces the text takes its new buffer from Allocate and
// gives back the old one by one decrement of references, freeing it when that leaves less than 1.
struct KestaStringHeader {
    void* manager;
    std::int32_t dataLength;   // characters in use, without the NUL
    std::int32_t allocLength;  // characters that fit, without the NUL
    std::int64_t references;   // strings that share the buffer; negative: locked
};

static_assert(sizeof(void*) == 8, "the contract is a 64-bit one");
static_assert(sizeof(KestaStringObject) == 8, "a string object is one pointer");
static_assert(sizeof(KestaStringHeader) == 24, "the string header is 24 bytes");
static_assert(offsetof(KestaStringHeader, manager) == 0, "the manager comes first");
static_assert(offsetof(KestaStringHeader, dataLength) == 8, "the length stands at byte 8");
static_assert(offsetof(KestaStringHeader, allocLength) == 12, "the capacity stands at byte 12");
static_assert(offsetof(KestaStringHeader, references) == 16, "the count stands at byte 16");

// One line for each entry point: result, name, arguments. Expanded below into declarations and
// types, by the library into its table, and by the stand-ins into checks of their completeness.
// The order is that of the library's table, which is part of its binary contract.
#define KESTA_TOKEN_ENTRY_POINTS(X)                                                                \
    /* serial: 1024 zeroed bytes that receive the key's serial number; the third argument is 1 */  \
    X(int, CheckDeviceEx,                                                                          \
      (std::uint32_t * state, _S_DEV_CONFIG * record, std::uint32_t one, char* serial))            \
    /* label: 512 zeroed bytes */                                                                  \
    X(int, GetLabel, (char* serial, char* label))                                                  \
    X(int, SetLabel, (const char* serial, const char* label))                                      \
    X(int, ChangePin, (const char* serial))                                                        \
    X(int, CustInitCard,                                                                           \
      (const char* serial, std::uint32_t argument2, void* argument3, std::uint32_t argument4))     \
    /* *request: receives a text from new char[], which the caller releases with delete[] */       \
    X(int, GMCreatePKCS10,                                                                         \
      (char* serial, std::uint32_t certType, std::uint32_t keyType, std::uint32_t hashType,        \
       char** request, void* argument6, std::uint32_t argument7))                                  \
    X(int, GMWritePKCS7, (const char* serial, const char* certificate, KestaStringObject& output)) \
    /* certificate: 4096 zeroed bytes; *length: 4096 on entry, the actual length on return */      \
    X(int, GetCertInfo,                                                                            \
      (const char* serial, std::uint32_t argument2, std::uint32_t argument3, char* certificate,    \
       std::uint32_t* length))                                                                     \
    /* name: 1024 zeroed bytes */                                                                  \
    X(int, GM_GetCertDN,                                                                           \
      (const char* serial, std::uint32_t argument2, std::uint32_t argument3, char* name))          \
    /* the arguments of the export SetCharset, in reverse */                                       \
    X(int, UOS_SetCharset, (const char* argument1, const char* argument2))                         \
    /* the arguments of the export SetLanguage, in reverse */                                      \
    X(int, UOS_SetLanguage, (const char* argument1, const char* argument2))                        \
    X(int, SetWarningMsg, (const char* serial, const char* warning))                               \
    X(int, GMUsbKeyCriticalSign,                                                                   \
      (const char* serial, std::int64_t option1, std::int64_t option2, const char* data,           \
       char* signature, std::uint32_t* length))                                                    \
    /* bound, never called; its arguments are the maker's own business */                          \
    X(int, GetMediaID, (const char* serial, char* mediaId))                                        \
    X(int, GM_RemoveUserPin, ())                                                                   \
    /* key: 1024 bytes; a key of 1024 characters has no NUL */                                     \
    X(int, GMImportPriKey, (const char* serial, char* key, std::uint32_t argument3))               \
    X(int, GMUsbKeyCommonSign,                                                                     \
      (char* serial, std::int32_t option1, std::int32_t option2, char* hash, std::int32_t option3, \
       char* signature, std::uint32_t* length))                                                    \
    X(int, GMUSBKeyAsymDec2,                                                                       \
      (char* serial, std::int32_t option1, std::uint32_t option2, char* cipher, char* plain,       \
       std::uint32_t* length))                                                                     \
    X(int, GMCreatePKCS10Ex,                                                                       \
      (char* serial, KestaRequestRecord* record, char** request, std::uint32_t argument4,          \
       void* argument5, std::uint32_t argument6))                                                  \
    /* a text that the token library owns */                                                       \
    X(const char*, X_ErrorConvert_UOS, (std::int32_t code))                                        \
    X(int, DelCertAndTempKey,                                                                      \
      (const char* serial, std::uint32_t argument2, std::uint32_t argument3))                      \
    X(int, VerifyPIN, (const char* serial))                                                        \
    X(int, VerifyAndCachePin, (const char* serial, void* argument2))                               \
    X(int, GetPinInfo, (const char* serial, void* pinInfo, std::uint32_t* length))                 \
    X(int, GetCertInfo_UOS,                                                                        \
      (const char* serial, std::uint32_t argument2, void* information, std::uint32_t* length))     \
    X(int, SetData, (const char* name, std::uint32_t argument2, const char* value))                \
    /* value: 260 zeroed bytes */                                                                  \
    X(int, GetData, (const char* name, std::uint32_t argument2, char* value))                      \
    X(int, Batch_Sign,                                                                             \
      (std::uint32_t flags, void* argument2, std::int32_t argument3, std::int32_t argument4,       \
       const char* data, void* argument6, void* argument7, std::int32_t argument8,                 \
       std::int32_t argument9, const char* dataList, std::int32_t argument11, char* signatures,    \
       std::uint32_t* length))                                                                     \
    X(int, SetCachePinFlag, (const char* serial, std::int32_t flag))

// kesta::token::VerifyPIN and so on: the types of the entry points. The names themselves are not
// declared at namespace scope, because several of them are also names of the library's exports,
// with other arguments.
namespace kesta {
namespace token {
#define KESTA_ENTRY_TYPE(result, name, arguments) using name = result arguments;
KESTA_TOKEN_ENTRY_POINTS(KESTA_ENTRY_TYPE)
#undef KESTA_ENTRY_TYPE

#define KESTA_COUNT_ENTRY(result, name, arguments) +1
constexpr int kEntryPoints = KESTA_TOKEN_ENTRY_POINTS(KESTA_COUNT_ENTRY);
#undef KESTA_COUNT_ENTRY
static_assert(kEntryPoints == 29, "29 entry points");
}  // namespace token
}  // namespace kesta

#endif
