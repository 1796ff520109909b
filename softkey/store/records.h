// What a software key consists of, as the store keeps it.
#ifndef SOFTKEY_STORE_RECORDS_H
#define SOFTKEY_STORE_RECORDS_H

#include <cstdint>
#include <string>
#include <vector>

#include "kesta/places.h"
#include "softkey/bytes.h"

namespace softkey {

constexpr int kMaxTries = 6;
constexpr std::size_t kMinPinLength = 6;
constexpr std::size_t kMaxPinLength = 16;  // characters
constexpr std::size_t kMaxSerialLength = 32;
constexpr std::size_t kMaxMediaIdLength = kesta::limits::kMediaId;
constexpr std::size_t kMaxLabelLength = kesta::limits::kLabelBuffer - 1;
constexpr std::size_t kMaxDataLength = kesta::limits::kDataBuffer - 1;
constexpr std::size_t kMaxWarningLength = 1024;

// The numbers are those of CertType, so that they mean the same at every edge.
enum class Role : std::int32_t {
    kSigning = 1,
    kEncryption = 3,
    kTemporary = 4,  // its public half went into a request; an escrowed pair is sealed to it
};

// The numbers are those of KeyType.
enum class Algorithm : std::int32_t { kRsa = 1, kSm2 = 2 };

enum class Button : std::int32_t { kPress = 0, kRefuse = 1, kAsk = 2 };

// The numbers are those of the event record.
enum class EventKind : std::int32_t { kInserted = 1, kRemoved = 2 };

struct KeyRecord {
    std::string serial;  // letters, digits, "-", "_" and "."
    std::string label;
    std::string mediaId;  // letters, digits, "-", "_" and "."
    std::uint32_t slot = 0;
    bool inserted = true;
    // Grows with every insertion and removal, and differs from that of any earlier key of this
    // serial number.
    std::int64_t insertions = 0;
    std::int64_t pinVersion = 0;  // grows whenever an earlier PIN check stops counting
    int triesLeft = kMaxTries;
    int maxTries = kMaxTries;
    Button button = Button::kPress;
};

// The master key of a key, sealed under a key that is derived from the PIN.
enum class Kdf : std::int32_t { kPbkdf2 = 1, kScrypt = 2 };
struct PinSeal {
    Bytes salt;
    Kdf kdf = Kdf::kScrypt;
    std::int64_t cost = 0;      // iterations of PBKDF2, or scrypt's N
    std::int64_t block = 0;     // scrypt's r
    std::int64_t parallel = 0;  // scrypt's p
    Bytes sealed;
};

struct PairRecord {
    std::int64_t id = 0;  // given by the store; a higher id is a newer pair
    Role role = Role::kSigning;
    Algorithm algorithm = Algorithm::kSm2;
    Bytes publicKey;       // SubjectPublicKeyInfo, DER
    Bytes wrappedPrivate;  // sealed under the master key: SM2's number, RSA's PKCS#1
    Bytes certificate;     // X.509, DER; empty until it is imported
};

struct DataObject {
    std::string name;
    std::uint32_t number = 0;
    std::string value;
};

struct Event {
    std::int64_t number = 0;  // grows by one with each event of the state folder
    EventKind kind = EventKind::kInserted;
    std::uint32_t slot = 0;
    std::string serial;
    std::string mediaId;
};

// A question that waits for the button.
struct Question {
    std::int64_t id = 0;
    std::string serial;
    std::int64_t deadline = 0;  // milliseconds since 1970
};

}  // namespace softkey

#endif
