#include "probe_cache.h"

#include <cstring>
#include <memory>

#include "last_error.h"

namespace kesta {

namespace {

const char* OrEmpty(const char* text) {
    return text == nullptr ? "" : text;
}

std::unique_ptr<char[]> NewCopy(const char* text) {
    const std::size_t size = std::strlen(text) + 1;
    std::unique_ptr<char[]> copy(new char[size]);
    std::memcpy(copy.get(), text, size);
    return copy;
}

int RefuseBuffer(int neededLength, const RequestCall& call) {
    *call.pnP10Len = neededLength;
    return SetLastError(KESTA_BUFFER_TOO_SMALL);
}

int CopyOut(const char* text, int length, const RequestCall& call) {
    *call.pnP10Len = length;
    std::memcpy(call.szP10, text, static_cast<std::size_t>(length) + 1);
    return LastError();
}

}  // namespace

std::optional<int> ProbeCache::Answer(const RequestCall& call) {
    if (call.szP10 == nullptr || p10_ == nullptr || request_ == nullptr || serial_ == nullptr) {
        return std::nullopt;
    }
    if (std::strcmp(request_, call.requestInfo) != 0 ||
        std::strcmp(serial_, OrEmpty(call.szSN)) != 0) {
        ReleaseP10Buffer();
        return std::nullopt;
    }
    const int length = LGN::TextLength(p10_);
    // Here the NUL counts, and the request stays for the next try.
    if (*call.pnP10Len < length) return RefuseBuffer(length + 1, call);
    const int result = CopyOut(p10_, length, call);
    ReleaseP10Buffer();
    return result;
}

int ProbeCache::HandOut(const LgnString& requests, const RequestCall& call) {
    const int length = requests.GetLength();
    if (call.szP10 == nullptr) {
        Keep(requests, call);
        *call.pnP10Len = length + 1;
        return LastError();
    }
    if (*call.pnP10Len < length) return RefuseBuffer(length, call);
    return CopyOut(requests.GetString(), length, call);
}

void ProbeCache::Keep(const LgnString& requests, const RequestCall& call) {
    // All three are there before the old ones go: no failure leaves a mixture.
    auto p10 = NewCopy(requests.GetString());
    auto request = NewCopy(call.requestInfo);
    auto serial = NewCopy(OrEmpty(call.szSN));
    ReleaseP10Buffer();
    p10_ = p10.release();
    request_ = request.release();
    serial_ = serial.release();
}

void ProbeCache::ReleaseP10Buffer() {
    for (char** entry : {&p10_, &request_, &serial_}) {
        delete[] * entry;
        *entry = nullptr;
    }
}

}  // namespace kesta
