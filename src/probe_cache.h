// The kept request: what the latest question for a size made, for the call with a buffer that
// follows it. That call must receive the very text whose length was told.
#ifndef KESTA_PROBE_CACHE_H
#define KESTA_PROBE_CACHE_H

#include <optional>

#include "kesta_unified_zrkukey.h"
#include "lgn/lgn.h"

namespace kesta {

// The arguments of a call for certificate requests; all but the serial number and the buffer are
// there.
struct RequestCall {
    const char* szSN;
    const char* requestInfo;
    char* szP10;
    int* pnP10Len;
};

// Works on three texts from new[] that somebody else holds: all of them or none.
class ProbeCache {
public:
    constexpr ProbeCache(char*& p10, char*& request, char*& serial)
        : p10_(p10), request_(request), serial_(serial) {}
    ProbeCache(const ProbeCache&) = delete;
    ProbeCache& operator=(const ProbeCache&) = delete;

    // Answers from the kept request where that was made for this call, and otherwise with what make
    // appends to the text that it is given.
    template <typename Make>
    int Serve(const RequestCall& call, Make make) {
        if (const auto kept = Answer(call)) return *kept;
        LgnString requests;
        const int result = make(requests);
        return result != KESTA_OK ? result : HandOut(requests, call);
    }

    // Serves a call with a buffer. Nothing where there is no kept request, or where it was made
    // for another key or other request information; it is then forgotten.
    std::optional<int> Answer(const RequestCall& call);

    // Hands newly made requests out, or keeps them for the next call.
    int HandOut(const LgnString& requests, const RequestCall& call);

    void ReleaseP10Buffer();

private:
    void Keep(const LgnString& requests, const RequestCall& call);

    char*& p10_;
    char*& request_;
    char*& serial_;
};

}  // namespace kesta

#endif
