// What exports do before and after their own work, as far as it takes none of their state.
#ifndef KESTA_FRAME_H
#define KESTA_FRAME_H

#include <string_view>

#include "commonfunction.h"
#include "last_error.h"

namespace kesta {

template <typename... Pointers>
bool AnyNull(Pointers... pointers) {
    return ((pointers == nullptr) || ...);
}

inline int Refuse() {
    return SetLastError(KESTA_BAD_ARGUMENT);
}

inline void LogBegin(const char* tag) {
    LogEntry(tag, "Begin");
}

inline void LogSerial(const char* szSN) {
    LogHex("szSN:", szSN, LGN::TextLength(szSN));
}

inline int LogEnd(const char* tag, int result) {
    LogEntry(tag, "End G_LastError: %08X", static_cast<unsigned>(result));
    return result;
}

// Answers a constant without its NUL. The caller's capacity is not compared.
inline int Answer(const char* tag, const char* format, std::string_view text, char* buffer,
                  unsigned int* length) {
    if (buffer != nullptr) text.copy(buffer, text.size());
    *length = static_cast<unsigned int>(text.size());
    if (buffer != nullptr) LogEntry(tag, format, text.data());
    return LogEnd(tag, LastError());
}

}  // namespace kesta

#endif
