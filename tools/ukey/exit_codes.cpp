#include "exit_codes.h"

#include <algorithm>

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
    Kind(Exit::kDiffers, "differs",
         N_("the replayed command made another call than the recorded one")),
    Kind(Exit::kInterrupted, "interrupted", N_("interrupted from the keyboard")),
};

const kit::Status& StatusOf(Exit code) {
    return *std::find_if(kExitKinds.begin(), kExitKinds.end(), [code](const kit::Status& status) {
        return status.number == static_cast<int>(code);
    });
}

const char* Name(Exit code) {
    return StatusOf(code).name;
}

Exit KindOfCode(int code) {
    return static_cast<Exit>(kesta::FactsOf(kesta::CodeTable::InUse()->KindOf(code)).exitStatus);
}

Exit KindOf(const kesta::Failure& failure) {
    return static_cast<Exit>(kesta::FactsOf(failure.kind()).exitStatus);
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
