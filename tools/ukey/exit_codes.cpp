#include "exit_codes.h"

#include "kit/text.h"

namespace ukey {

namespace {

kit::Status Kind(Exit exit, const char* name, const char* words) {
    return {static_cast<int>(exit), name, words};
}

}  // namespace

using kit::_;
using kit::N_;

const std::vector<kit::Status> kExitKinds = {
    Kind(Exit::kOk, "ok", N_("success")),
    Kind(Exit::kFailed, "failed", N_("the key or its library reported another failure")),
    Kind(Exit::kUsage, "usage", N_("wrong options or malformed input")),
    Kind(Exit::kKeyAbsent, "key-absent", N_("no key, not this key, or it was pulled out")),
    Kind(Exit::kPin, "pin", N_("the PIN is wrong, locked or was not entered")),
    Kind(Exit::kRefused, "refused", N_("a person refused, at the key's button or at a question")),
    Kind(Exit::kBuffer, "buffer", N_("a buffer is too small or a reported length cannot be true")),
    Kind(Exit::kNotLoaded, "not-loaded", N_("the library or the token library cannot be loaded")),
    Kind(Exit::kNotFound, "not-found",
         N_("the key holds no such certificate, key pair or data object")),
    Kind(Exit::kFile, "file", N_("a file cannot be read or written")),
    Kind(Exit::kUnsupported, "unsupported", N_("the library or the key does not support this")),
    Kind(Exit::kTimeout, "timeout", N_("no event came in time")),
    Kind(Exit::kFindings, "findings", N_("doctor found something that needs a remedy")),
    Kind(Exit::kInterrupted, "interrupted", N_("interrupted from the keyboard")),
};

const char* Name(Exit code) {
    for (const kit::Status& kind : kExitKinds) {
        if (kind.number == static_cast<int>(code)) return kind.name;
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

bool IsSoftwareKeyCode(int code) {
    return code > 0x5B00 && code < 0x5B80;
}

Exit KindOf(const kesta::Failure& failure) {
    if (failure.origin == kesta::Failure::Origin::kLoading) return Exit::kNotLoaded;
    return KindOfCode(failure.code);
}

std::string Advice(const kesta::Failure& failure) {
    switch (KindOf(failure)) {
        case Exit::kNotLoaded:
            return _("`ukey doctor` says which file or entry point is missing");
        case Exit::kKeyAbsent:
            return _("insert the key; `ukey doctor` says whether it is seen");
        case Exit::kUsage:
            return failure.origin == kesta::Failure::Origin::kLibrary
                       ? _("the library refused an argument; see --help for what it takes")
                       : "";
        default:
            return {};
    }
}

}  // namespace ukey
