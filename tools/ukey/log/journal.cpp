#include "log/journal.h"

#include <dlfcn.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>

#include "kesta/ukey/failure.hpp"
#include "log/show.h"
#include "names.h"

namespace ukey {
namespace {

constexpr const char* kLibrary = "libsystemd.so.0";
constexpr const char* kSocket = "/run/systemd/journal/socket";
// Names this kind of entry: journalctl MESSAGE_ID=...
constexpr const char* kMessageId = "MESSAGE_ID=5c1e9f0f7b0a4c0e8d53b6a1f24c7e90";

std::vector<std::string> Fields(const LogCall& call, const std::string& message) {
    const std::string code = kesta::CodeText(*call.code);
    const std::string why = message + (message.empty() ? "" : " ") + "(" + code + ")";
    std::vector<std::string> fields = {
        "MESSAGE=" + Fill(_("{1} failed: {2}"), {call.operation, why}),
        kMessageId,
        "PRIORITY=4",
        "SYSLOG_IDENTIFIER=ukey",
        "KESTA_OPERATION=" + call.operation,
        "KESTA_CODE=" + code,
        "KESTA_CODE_NUMBER=" + std::to_string(*call.code),
        "KESTA_PROCESS=" + std::to_string(call.process),
        "KESTA_THREAD=" + std::to_string(call.thread)};
    if (call.begin) fields.push_back("KESTA_BEGIN=" + TimeText(*call.begin));
    if (call.end) fields.push_back("KESTA_END=" + TimeText(*call.end));
    if (const auto micros = call.Micros()) {
        fields.push_back("KESTA_MICROSECONDS=" + std::to_string(*micros));
    }
    return fields;
}

}  // namespace

Journal::Journal() {
    // libsystemd takes an absent journal for success.
    if (::access(kSocket, W_OK) != 0) throw FileError(_("the journal cannot be reached"), errno);
    void* const library = ::dlopen(kLibrary, RTLD_NOW | RTLD_LOCAL);
    void* const found = library == nullptr ? nullptr : ::dlsym(library, "sd_journal_sendv");
    if (found == nullptr) {
        throw FileError(Fill(_("the journal cannot be written: {1}"), {::dlerror()}), 0);
    }
    send_ = reinterpret_cast<int (*)(const iovec*, int)>(found);
}

void Journal::Send(const LogCall& call, const std::string& message) const {
    std::vector<std::string> fields = Fields(call, message);
    std::vector<iovec> parts;
    for (std::string& field : fields) parts.push_back({field.data(), field.size()});
    const int result = send_(parts.data(), static_cast<int>(parts.size()));
    if (result < 0) throw FileError(_("the journal cannot be written"), -result);
}

}  // namespace ukey
