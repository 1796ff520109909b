// What an entry point finds in G_LastError: tells whether an export clears it before it asks.
#ifndef KESTA_API_SEEN_LAST_ERROR_H
#define KESTA_API_SEEN_LAST_ERROR_H

#include <functional>
#include <string>

#include "kesta_unified_zrkukey.h"
#include "recording.h"

// Binds first, since binding clears it too.
inline int LastErrorSeenBy(const std::string& entry, const std::function<void()>& call) {
    constexpr int before = 0x7E57;
    int seen = before + 1;
    recording::TheRecorder().On(entry).Does(
        [&seen](const recording::Call&) { seen = G_LastError; });
    Initialize();
    G_LastError = before;
    call();
    recording::TheRecorder().On(entry).Does({});
    return seen;
}

#endif
