// What exports do before and after their own work, as far as it takes none of their state.
#ifndef KESTA_FRAME_H
#define KESTA_FRAME_H

#include <string_view>

#include "commonfunction.h"
#include "last_error.h"

namespace kesta {

template <typename... Pointers>
bool anyNull(Pointers... pointers) {
    return ((pointers == nullptr) || ...);
}

inline int refuse() {
    return setLastError(KESTA_BAD_ARGUMENT);
}

inline void logBegin(const char* tag) {
    LogEntry(tag, "Begin");
}

inline void logSerial(const char* szSN) {
    LogHex("szSN:", szSN, LGN::TextLength(szSN));
}

inline int logEnd(const char* tag, int result) {
    LogEntry(tag, "End G_LastError: %08X", static_cast<unsigned>(result));
    return result;
}

// Answers a constant without its NUL. The caller's capacity is not compared.
inline int answer(const char* tag, const char* format, std::string_view text, char* buffer,
                  unsigned int* length) {
    if (buffer != nullptr) text.copy(buffer, text.size());
    *length = static_cast<unsigned int>(text.size());
    if (buffer != nullptr) LogEntry(tag, format, text.data());
    return logEnd(tag, lastError());
}

}  // namespace kesta

#endif
