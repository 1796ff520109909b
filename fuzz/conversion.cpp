// MB2MB: what is well-formed UTF-8 comes out as iconv itself converts it, copies come out as they
// were.
#include <iconv.h>

#include <memory>
#include <optional>
#include <string>

#include "commonfunction.h"
#include "fuzz_target.h"

namespace {

std::optional<std::string> Converted(std::string text) {
    const iconv_t converter = iconv_open("GB18030", "UTF-8");
    FUZZ_EXPECT(converter != reinterpret_cast<iconv_t>(-1));
    std::string out(text.size() * 4 + 16, '\0');
    char* from = text.data();
    char* to = out.data();
    std::size_t left = text.size(), room = out.size();
    const bool good = iconv(converter, &from, &left, &to, &room) != static_cast<std::size_t>(-1);
    iconv_close(converter);
    if (!good) return std::nullopt;
    out.resize(out.size() - room);
    return out;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size > 4096) return 0;
    static CommonFunction functions;
    const std::string text(reinterpret_cast<const char*>(data), size);
    for (const unsigned direction : {0U, 1U}) {
        unsigned char* out = nullptr;
        unsigned length = 0;
        const int code =
            functions.MB2MB(direction, data, static_cast<unsigned>(size), &out, &length);
        const std::unique_ptr<unsigned char[]> owner(out);
        const auto expected = direction == 0 ? Converted(text) : std::optional(text);
        if (!expected) continue;
        FUZZ_EXPECT(code == (expected->empty() ? -1 : 0));
        FUZZ_EXPECT(std::string(reinterpret_cast<char*>(out), length) == *expected);
    }
    return 0;
}
