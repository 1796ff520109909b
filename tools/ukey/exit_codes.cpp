#include "exit_codes.h"

namespace ukey {

const ExitKind kExitKinds[14] = {
    {Exit::kOk, "ok", "success"},
    {Exit::kFailed, "failed", "the key or its library reported another failure"},
    {Exit::kUsage, "usage", "wrong options or malformed input"},
    {Exit::kKeyAbsent, "key-absent", "no key, not this key, or it was pulled out"},
    {Exit::kPin, "pin", "the PIN is wrong, locked or was not entered"},
    {Exit::kRefused, "refused", "a person refused, at the key's button or at a question"},
    {Exit::kBuffer, "buffer", "a buffer is too small or a reported length cannot be true"},
    {Exit::kNotLoaded, "not-loaded", "the library or the token library cannot be loaded"},
    {Exit::kNotFound, "not-found", "the key holds no such certificate, key pair or data object"},
    {Exit::kFile, "file", "a file cannot be read or written"},
    {Exit::kUnsupported, "unsupported", "the library or the key does not support this"},
    {Exit::kTimeout, "timeout", "no event came in time"},
    {Exit::kFindings, "findings", "doctor found something that needs a remedy"},
    {Exit::kInterrupted, "interrupted", "interrupted from the keyboard"},
};

const char* Name(Exit code) {
    for (const ExitKind& kind : kExitKinds) {
        if (kind.code == code) return kind.name;
    }
    return "failed";
}

namespace {

struct Range {
    int first;
    int last;
    Exit kind;
};

// The software key's codes, by groups. A token library of hardware has numbers of its own, which
// its maker does not publish; they are reported as they are, with their text.
constexpr Range kSoftwareKey[] = {
    {0x5B01, 0x5B01, Exit::kUnsupported}, {0x5B02, 0x5B02, Exit::kUsage},
    {0x5B04, 0x5B04, Exit::kBuffer},      {0x5B11, 0x5B1F, Exit::kKeyAbsent},
    {0x5B21, 0x5B2F, Exit::kPin},         {0x5B31, 0x5B3F, Exit::kRefused},
    {0x5B41, 0x5B42, Exit::kNotFound},    {0x5B51, 0x5B51, Exit::kNotFound},
    {0x5B53, 0x5B53, Exit::kUsage},
};

}  // namespace

Exit KindOfCode(int code) {
    switch (code) {
        case KESTA_OK:
            return Exit::kOk;
        case KESTA_NOT_BOUND:
        case KESTA_NOT_INITIALISED:
            return Exit::kNotLoaded;
        case KESTA_UNSUPPORTED:
            return Exit::kUnsupported;
        case KESTA_BAD_ARGUMENT:
            return Exit::kUsage;
        case KESTA_BUFFER_TOO_SMALL:
            return Exit::kBuffer;
        default:
            break;
    }
    for (const Range& range : kSoftwareKey) {
        if (code >= range.first && code <= range.last) return range.kind;
    }
    return Exit::kFailed;
}

Exit KindOf(const kesta::Failure& failure) {
    if (failure.origin == kesta::Failure::Origin::kLoading) return Exit::kNotLoaded;
    return KindOfCode(failure.code);
}

std::string Advice(const kesta::Failure& failure) {
    switch (KindOf(failure)) {
        case Exit::kNotLoaded:
            return "`ukey doctor` says which file or entry point is missing";
        case Exit::kKeyAbsent:
            return "insert the key; `ukey doctor` says whether it is seen";
        case Exit::kUsage:
            return failure.origin == kesta::Failure::Origin::kLibrary
                       ? "the library refused an argument; see --help for what it takes"
                       : "";
        default:
            return {};
    }
}

}  // namespace ukey
