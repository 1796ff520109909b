// Entry points that tell what a result code means, and in which language.
#include <strings.h>

#include <algorithm>
#include <array>
#include <string_view>

#include "softkey/messages.h"
#include "softkey/result.h"
#include "softkey/token/call.h"
#include "softkey/token/entry_points.h"
#include "softkey/token/locale.h"

namespace softkey {
namespace {

template <typename T>
struct Named {
    const char* name;
    T value;
};

constexpr std::array<Named<Charset>, 8> kCharsets{{{"UTF-8", Charset::kUtf8},
                                                   {"UTF8", Charset::kUtf8},
                                                   {"0", Charset::kUtf8},
                                                   {"GB18030", Charset::kGb18030},
                                                   {"GB-18030", Charset::kGb18030},
                                                   {"GBK", Charset::kGb18030},
                                                   {"GB2312", Charset::kGb18030},
                                                   {"1", Charset::kGb18030}}};

constexpr std::array<Named<Language>, 10> kLanguages{{{"zh_CN", Language::kChinese},
                                                      {"zh-CN", Language::kChinese},
                                                      {"zh", Language::kChinese},
                                                      {"0", Language::kChinese},
                                                      {"1", Language::kChinese},
                                                      {"en_US", Language::kEnglish},
                                                      {"en-US", Language::kEnglish},
                                                      {"en_GB", Language::kEnglish},
                                                      {"en", Language::kEnglish},
                                                      {"2", Language::kEnglish}}};

// Names are compared without regard to case; what follows the "." of a locale name is left out.
template <typename T, std::size_t size>
T Find(const std::array<Named<T>, size>& known, const char* text) {
    if (text == nullptr) throw Failure(kBadArgument);
    const std::string name = std::string(text).substr(0, std::string_view(text).find('.'));
    for (const Named<T>& entry : known) {
        if (strcasecmp(entry.name, name.c_str()) == 0) return entry.value;
    }
    throw Failure(kUnknownLocale);
}

}  // namespace
}  // namespace softkey

using namespace softkey;

// argument1 names a key and is not looked at: messages are needed most when no key is there, so
// the setting holds for the process. argument2 is the name.
int UOS_SetCharset(const char*, const char* argument2) {
    return Enter({"UOS_SetCharset"}, [=](Call&) { currentCharset = Find(kCharsets, argument2); });
}

int UOS_SetLanguage(const char*, const char* argument2) {
    return Enter({"UOS_SetLanguage"},
                 [=](Call&) { currentLanguage = Find(kLanguages, argument2); });
}

const char* X_ErrorConvert_UOS(std::int32_t code) {
    const char* text = MessageText(code, currentLanguage, currentCharset);
    Enter({"X_ErrorConvert_UOS"}, [&text](Call& call) { text = call.Standing(text); });
    return text;
}
