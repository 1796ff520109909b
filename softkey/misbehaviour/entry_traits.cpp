#include "softkey/misbehaviour/entry_traits.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "kesta/event_library.h"
#include "kesta/token_library.h"

namespace softkey {
namespace {

constexpr unsigned kKey = kAboutKey | kUsesKey | kAnswersCode;
constexpr unsigned kText = kOutput | kDivisible;
constexpr unsigned kBoundedText = kText | kBounded;

constexpr std::string_view kNames[] = {
#define SOFTKEY_ENTRY_NAME(result, name, arguments) #name,
    KESTA_TOKEN_ENTRY_POINTS(SOFTKEY_ENTRY_NAME) KESTA_EVENT_ENTRY_POINTS(SOFTKEY_ENTRY_NAME)
#undef SOFTKEY_ENTRY_NAME
};

struct Row {
    std::string_view name;
    unsigned traits;
};

// Those that are not here use a key and hand nothing out.
constexpr Row kOthers[] = {
    {"CheckDeviceEx", kKey | kBoundedText},
    {"GetLabel", kKey | kBoundedText},
    {"GMCreatePKCS10", kKey | kText},
    {"GetCertInfo", kKey | kBoundedText | kLength},
    {"GM_GetCertDN", kKey | kBoundedText},
    {"UOS_SetCharset", kAnswersCode},
    {"UOS_SetLanguage", kAnswersCode},
    {"GMUsbKeyCriticalSign", kKey | kBoundedText | kLength},
    {"GetMediaID", kKey | kBoundedText},
    {"GMUsbKeyCommonSign", kKey | kBoundedText | kLength},
    {"GMUSBKeyAsymDec2", kKey | kBoundedText | kLength},
    {"GMCreatePKCS10Ex", kKey | kText},
    {"X_ErrorConvert_UOS", kText},
    {"GetPinInfo", kKey | kText | kLength},
    {"GetCertInfo_UOS", kKey | kBoundedText | kLength},
    {"GetData", kKey | kBoundedText},
    {"Batch_Sign", kKey | kBoundedText | kLength},
    {"ValtoT_GetSlotList", kAnswersCode | kText | kLength},
    {"ValtoT_GetDeviceInfo", kAnswersCode | kAboutKey | kBoundedText},
    {"ValtoT_ContextInit", kAnswersCode},
    {"ValtoT_WaitForEvent", kAnswersCode | kAboutKey | kOutput | kDelivers},
    {"ValtoT_ContextFinal", kAnswersCode},
};

constexpr bool AreEntryPoints() {
    for (const Row& row : kOthers) {
        bool found = false;
        for (const std::string_view name : kNames) found = found || name == row.name;
        if (!found) return false;
    }
    return true;
}
static_assert(AreEntryPoints(), "a row that no entry point has");

}  // namespace

const std::vector<std::string>& MisbehaviourEntryPoints() {
    static const auto* const names =
        new std::vector<std::string>(std::begin(kNames), std::end(kNames));
    return *names;
}

std::optional<std::size_t> MisbehaviourEntryIndex(const std::string& name) {
    const auto& names = MisbehaviourEntryPoints();
    const auto found = std::find(names.begin(), names.end(), name);
    if (found == names.end()) return std::nullopt;
    return static_cast<std::size_t>(found - names.begin());
}

unsigned TraitsOf(const std::string& entry) {
    for (const Row& row : kOthers) {
        if (row.name == entry) return row.traits;
    }
    return kKey;
}

}  // namespace softkey
