#include "probe_cache.h"

#include <cstring>
#include <memory>

#include "last_error.h"

namespace kesta {

namespace {

const char* orEmpty(const char* text) {
    return text == nullptr ? "" : text;
}

std::unique_ptr<char[]> newCopy(const char* text) {
    const std::size_t size = std::strlen(text) + 1;
    std::unique_ptr<char[]> copy(new char[size]);
    std::memcpy(copy.get(), text, size);
    return copy;
}

int refuseBuffer(int neededLength, const RequestCall& call) {
    *call.pnP10Len = neededLength;
    return setLastError(KESTA_BUFFER_TOO_SMALL);
}

int copyOut(const char* text, int length, const RequestCall& call) {
    *call.pnP10Len = length;
    std::memcpy(call.szP10, text, static_cast<std::size_t>(length) + 1);
    return lastError();
}

}  // namespace

std::optional<int> ProbeCache::answer(const RequestCall& call) {
    if (call.szP10 == nullptr || m_p10 == nullptr || m_request == nullptr || m_serial == nullptr) {
        return std::nullopt;
    }
    if (std::strcmp(m_request, call.requestInfo) != 0 ||
        std::strcmp(m_serial, orEmpty(call.szSN)) != 0) {
        ReleaseP10Buffer();
        return std::nullopt;
    }
    const int length = LGN::TextLength(m_p10);
    // Here the NUL counts, and the request stays for the next try.
    if (*call.pnP10Len < length) return refuseBuffer(length + 1, call);
    const int result = copyOut(m_p10, length, call);
    ReleaseP10Buffer();
    return result;
}

int ProbeCache::handOut(const LgnString& requests, const RequestCall& call) {
    const int length = requests.GetLength();
    if (call.szP10 == nullptr) {
        keep(requests, call);
        *call.pnP10Len = length + 1;
        return lastError();
    }
    if (*call.pnP10Len < length) return refuseBuffer(length, call);
    return copyOut(requests.GetString(), length, call);
}

void ProbeCache::keep(const LgnString& requests, const RequestCall& call) {
    // All three are there before the old ones go: no failure leaves a mixture.
    auto p10 = newCopy(requests.GetString());
    auto request = newCopy(call.requestInfo);
    auto serial = newCopy(orEmpty(call.szSN));
    ReleaseP10Buffer();
    m_p10 = p10.release();
    m_request = request.release();
    m_serial = serial.release();
}

void ProbeCache::ReleaseP10Buffer() {
    for (char** entry : {&m_p10, &m_request, &m_serial}) {
        delete[] * entry;
        *entry = nullptr;
    }
}

}  // namespace kesta
