#include "log/writers.h"

#include <strings.h>

#include "kesta/ukey/functions.hpp"
#include "names.h"

namespace ukey {
namespace {

constexpr const char* kLogged[] = {
    "GetDriverVersion",  "GetDllVersion",       "GetVidAndPid",
    "GetPrintNumber",    "ChangePin",           "InitUKey",
    "TestInitUKey",      "WaitForKeyEvent",     "Batch_InitAndGenerateCertRequest",
    "ImportEncX509Cert", "Batch_ImportX509Cert"};

#define UKEY_NAME(name) #name,
constexpr const char* kFunctions[] = {KESTA_UKEY_FUNCTIONS(UKEY_NAME)};
#undef UKEY_NAME

// Most tags are the function's name; these are not.
struct Alias {
    std::string_view start;
    LogWriter writer;
};
constexpr Alias kAliases[] = {
    {"SKF_WaitForDevEvent", {"WaitForKeyEvent"}},
    {"X_getCurrentSlots", {"WaitForKeyEvent"}},
    {"VALTO_EVENT_INFO::", {"WaitForKeyEvent"}},
    {"CZRKUSBKey::ImportEncX509Cert", {"ImportEncX509Cert", true}},
    {"CZRKUSBKey::Batch_ImportX509Cert", {"Batch_ImportX509Cert"}},
    {"CGMUsbKeyCommonEx", {"Batch_ImportX509Cert"}},
    {"szSN:", {""}},
};

template <std::size_t kSize>
const char* Find(const char* const (&names)[kSize], const std::string& name) {
    for (const char* const known : names) {
        if (::strcasecmp(known, name.c_str()) == 0) return known;
    }
    return nullptr;
}

}  // namespace

LogWriter WriterOf(std::string_view tag) {
    for (const Alias& alias : kAliases) {
        if (tag.compare(0, alias.start.size(), alias.start) == 0) return alias.writer;
    }
    return {tag};
}

std::string LoggedFunction(const std::string& name) {
    if (const char* const logged = Find(kLogged, name)) return logged;
    if (const char* const function = Find(kFunctions, name)) {
        throw UsageError(
            Fill(_("{1} writes nothing to the log; these do: {2}"), {function, LoggedFunctions()}));
    }
    return std::string(WriterOf(name).operation);
}

bool IsLogged(const std::string& name) {
    const char* const known = Find(kLogged, name);
    return known != nullptr && name == known;
}

std::string LoggedFunctions() {
    std::string text;
    for (const char* const name : kLogged) text += (text.empty() ? "" : ", ") + std::string(name);
    return text;
}

}  // namespace ukey
