// Records of the log: whatever the tag and the arguments are, the file gains one record, and its
// body is what printf makes of them. A file above the limit begins anew.
#include <pthread.h>
#include <unistd.h>

#include <cctype>
#include <fstream>
#include <iterator>
#include <string>

#include "commonfunction.h"
#include "draw.h"
#include "fuzz_target.h"
#include "kesta/places.h"

namespace {

using calls::Draw;
using kesta::places::kLogFile;
using kesta::places::kLogLimit;

// Around what a record holds before it asks for more memory.
std::string AnyText(Draw& draw) {
    static const unsigned sizes[] = {0, 1, 5, 30, 2000, 3900, 4000, 4096, 4100, 9000};
    std::string piece;
    for (unsigned more = draw.below(6); more > 0; --more) {
        piece += static_cast<char>(1 + draw.below(255));
    }
    if (draw.once_in(2)) return piece;
    std::string made;
    std::size_t size = draw.of(sizes);
    size += draw.below(64);
    while (made.size() < size) made += piece.empty() ? "%s" : piece;
    return made.substr(0, size);
}

template <class... Arguments>
std::string Log(const char* tag, const char* format, Arguments... arguments) {
    LogEntry(tag, format, arguments...);
    std::string body(static_cast<std::size_t>(std::snprintf(nullptr, 0, format, arguments...)), 0);
    std::snprintf(body.data(), body.size() + 1, format, arguments...);
    return body;
}

std::string LogBytes(const char* tag, const std::string& bytes, int length) {
    LogHex(tag, bytes.empty() ? nullptr : bytes.data(), length);
    std::string body;
    for (int i = 0; !bytes.empty() && i < length; ++i) {
        char two[3];
        std::snprintf(two, sizeof two, "%02X",
                      static_cast<unsigned>(static_cast<unsigned char>(bytes[unsigned(i)])));
        body += two;
    }
    return body;
}

std::string AnyRecord(Draw& draw, const char* tag, bool& hexadecimal) {
    const std::string one = AnyText(draw), two = AnyText(draw);
    const int number = static_cast<int>(draw.next());
    switch (draw.below(8)) {
        case 0:
            return Log(tag, "Begin szSN = %s,requestInfo = %s", one.c_str(), two.c_str());
        case 1:
            return Log(tag, "begin, strP7: %s", one.c_str());
        case 2:
            return Log(tag, "%s", static_cast<const char*>(nullptr));
        case 3:
            return Log(tag, "End G_LastError: %08X", number);
        case 4:
            return Log(tag, " event.ei.slotEvent.u32SlotID = %d, line = %d", number, 600);
        case 5:
            return Log(tag, "%lu%c%-9.3s|%5d", 1UL, 'c', one.c_str(), number);
        default:
            hexadecimal = true;
            return LogBytes(tag, one, static_cast<int>(draw.below(one.size() + 1)) - 1);
    }
}

std::string FileFrom(std::streamoff offset) {
    std::ifstream file(kLogFile, std::ios::binary);
    file.seekg(offset);
    return {std::istreambuf_iterator<char>(file), {}};
}

// "[07,12:03:04.056] ", whatever the digits are, is taken off.
void TakeTime(std::string& text, bool hexadecimal) {
    for (const char shape : std::string("[dd,dd:dd:dd.ddd")) {
        FUZZ_EXPECT(!text.empty());
        FUZZ_EXPECT(shape == 'd' ? std::isdigit(static_cast<unsigned char>(text[0])) != 0
                                 : text[0] == shape);
        text.erase(0, 1);
    }
    // LogHex writes microseconds.
    std::size_t more = 0;
    while (more < text.size() && std::isdigit(static_cast<unsigned char>(text[more])) != 0) ++more;
    FUZZ_EXPECT(more <= (hexadecimal ? 3 : 0));
    text.erase(0, more);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Draw draw(data, size);
    unlink(kLogFile);
    std::int64_t before = 0;
    while (draw.left() != 0) {
        if (draw.once_in(8) && before != 0) {
            before = kLogLimit - 1 + draw.below(3);
            FUZZ_EXPECT(truncate(kLogFile, before) == 0);
        }
        if (before > kLogLimit) before = 0;
        const std::string name = AnyText(draw);
        const char* const tag = draw.once_in(9) ? nullptr : name.c_str();
        bool hexadecimal = false;
        const std::string body = AnyRecord(draw, tag, hexadecimal);
        std::string text = FileFrom(before);
        before += static_cast<std::int64_t>(text.size());
        TakeTime(text, hexadecimal);
        const auto thread = static_cast<std::int32_t>(static_cast<std::uint32_t>(pthread_self()));
        FUZZ_EXPECT(text == std::string("] ") + (tag == nullptr ? "(null)" : tag) +
                                ": (Process is " + std::to_string(getpid()) + ", thread is " +
                                std::to_string(thread) + ")\r\n\t[" + body + "]\r\n");
    }
    return 0;
}
