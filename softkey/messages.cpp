#include "softkey/messages.h"

#include <iconv.h>

#include <cstdio>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "softkey/codes.h"

namespace softkey {
namespace {

struct Entry {
    std::int32_t code;
    const char* english;
    const char* chinese;
};

constexpr Entry kEntries[] = {
#define SOFTKEY_ENTRY(name, value, english, chinese) {value, english, chinese},
    SOFTKEY_CODES(SOFTKEY_ENTRY)
#undef SOFTKEY_ENTRY
    // The library's own codes: a client asks for their texts in the same way.
    {-101, "the token library could not be loaded", "无法加载令牌库"},
    {-109, "the library is not initialised", "接口库尚未初始化"},
    {-300, "the selector or operation is not supported", "不支持的选项或操作"},
    {-401, "an argument is missing, out of range or malformed", "参数缺失、超出范围或格式错误"},
    {-404, "the caller's buffer is too small", "调用方缓冲区过小"},
};

const Entry* FindEntry(std::int32_t code) {
    for (const Entry& entry : kEntries) {
        if (entry.code == code) return &entry;
    }
    return nullptr;
}

std::string UnknownText(std::int32_t code, Language language) {
    char text[64];
    std::snprintf(
        text, sizeof text,
        language == Language::kEnglish ? "unknown result code 0x%08X" : "未知返回码 0x%08X",
        static_cast<unsigned>(code));
    return text;
}

// Empty when the system cannot convert.
std::string ToGb18030(const std::string& utf8) {
    const iconv_t converter = iconv_open("GB18030", "UTF-8");
    if (converter == reinterpret_cast<iconv_t>(-1)) return {};
    const std::unique_ptr<void, int (*)(iconv_t)> closed(converter, iconv_close);
    std::string source = utf8;
    std::string result(utf8.size() * 4, '\0');  // four bytes is the longest GB18030 character
    char* in = source.data();
    char* out = result.data();
    std::size_t inLeft = source.size();
    std::size_t outLeft = result.size();
    const bool converted = iconv(converter, &in, &inLeft, &out, &outLeft) == 0;
    if (!converted) return {};
    result.resize(result.size() - outLeft);
    return result;
}

// Texts that are not literals, kept until the process ends: a client may hold on to the pointer,
// and may ask while static objects are being destroyed. Unknown codes are few in practice; beyond
// the limit they share one text, so that a client that asks for every number eats no memory.
class Cache {
public:
    static Cache& Instance() {
        static Cache* const cache = new Cache;
        return *cache;
    }

    const char* Find(std::int32_t code, Language language, Charset charset) {
        const std::lock_guard<std::mutex> lock(mutex_);
        const Key key{code, {language, charset}};
        const auto known = texts_.find(key);
        if (known != texts_.end()) return known->second.c_str();
        const Entry* entry = FindEntry(code);
        if (entry == nullptr && texts_.size() >= kLimit) return "unknown result code";
        std::string text = entry ? entry->chinese : UnknownText(code, language);
        if (charset == Charset::kGb18030) text = ToGb18030(text);
        if (text.empty()) text = entry ? entry->english : UnknownText(code, Language::kEnglish);
        return texts_.emplace(key, std::move(text)).first->second.c_str();
    }

private:
    using Key = std::pair<std::int32_t, std::pair<Language, Charset>>;
    static constexpr std::size_t kLimit = 4096;

    std::mutex mutex_;
    std::map<Key, std::string> texts_;
};

}  // namespace

const char* MessageText(std::int32_t code, Language language, Charset charset) noexcept {
    const Entry* const entry = FindEntry(code);
    if (entry != nullptr && language == Language::kEnglish) return entry->english;
    if (entry != nullptr && charset == Charset::kUtf8) return entry->chinese;
    try {
        return Cache::Instance().Find(code, language, charset);
    } catch (...) {
        return entry != nullptr ? entry->english : "unknown result code";
    }
}

}  // namespace softkey
