// A named trace category. The maker's components expect the one below to exist; nothing reads it.
#ifndef LGN_TRACE_H
#define LGN_TRACE_H

namespace LGN {

struct CTraceCategory {
    const char* name;
    int category;
    int level;
};

// Hooks around the library's life; there is nothing to do in either.
void DoInitialization();
void DoCleanup();

}  // namespace LGN

extern const LGN::CTraceCategory lgnTraceGeneral;

#endif
