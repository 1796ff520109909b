// The operations that write to a buffer, each brought to one form: a code and a text.
#ifndef FACE_OUTPUTS_H
#define FACE_OUTPUTS_H

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "kesta/ukey.hpp"
#include "stand_in.h"

namespace kesta {

struct Output {
    std::string text;  // the message of a failure
    int code;
};
struct Operation {
    const char* name;
    std::size_t bound;  // the capacity that is offered; 0 where the tests do not look at it
    std::function<Output(const Library::Quiet&)> run;
};
inline void PrintTo(const Operation& operation, std::ostream* stream) {
    *stream << operation.name;
}

inline Output Of(const Result<std::string>& result) {
    return {result.ok() ? result.value() : result.failure().message, result.code()};
}
inline Output Of(const Result<Bytes>& result) {
    return {result.ok() ? std::string(result.value().begin(), result.value().end())
                        : result.failure().message,
            result.code()};
}
inline Output Of(const Result<std::vector<std::string>>& result) {
    return {result.ok() ? JoinList(result.value()) : result.failure().message, result.code()};
}
inline Output Of(const Result<Event>& result) {
    return {result.ok() ? result.value().mediaId : result.failure().message, result.code()};
}

inline Result<std::vector<std::string>> OneInBatch(const Library::Quiet& quiet) {
    BatchArguments batch;
    batch.list = {"text"};
    return quiet.Batch_Sign(batch);
}

inline Result<Event> OneEvent(const Library::Quiet& quiet) {
    {
        const std::lock_guard<std::mutex> lock(stand_in().mutex);
        const std::string mediaId = stand_in().text.substr(0, 16);  // no library writes more
        stand_in().occurrences.push_back({KESTA_EVENT_ARRIVAL, mediaId, KESTA_OK});
    }
    return quiet.WaitForKeyEvent();
}

// Texts that end at a NUL.
inline const std::vector<Operation> kTexts = {
    {"GetDllVersion", 64, [](auto& q) { return Of(q.GetDllVersion()); }},
    {"GetDriverVersion", 64, [](auto& q) { return Of(q.GetDriverVersion()); }},
    {"GetVidAndPid", 64, [](auto& q) { return Of(q.GetVidAndPid()); }},
    {"GetPrintNumber", 1024, [](auto& q) { return Of(q.GetPrintNumber()); }},
    {"GetVendorInfo", 256, [](auto& q) { return Of(q.GetVendorInfo(1)); }},
    {"GetCert", 4096, [](auto& q) { return Of(q.GetCert("SN", 1, 2)); }},
    {"GetCertDN", 1024, [](auto& q) { return Of(q.GetCertDN("SN", 1, 2)); }},
    {"GetLabel", 512, [](auto& q) { return Of(q.GetLabel("SN")); }},
    {"GetData", 260, [](auto& q) { return Of(q.GetData("ten-letter", 0)); }},
    {"Sign", 8200, [](auto& q) { return Of(q.Sign("SN", 1, 2, "data", "w")); }},
    {"SignHash", 8200, [](auto& q) { return Of(q.SignHash("SN", 1, 2, "hash", 3)); }},
    {"Batch_Sign", 4104, [](auto& q) { return Of(OneInBatch(q)); }},
};

// Records, whose length is all there is to go by.
inline const std::vector<Operation> kRecords = {
    {"GetPinInfo", 8, [](auto& q) { return Of(q.GetPinInfo("SN")); }},
    {"GetCertInfo", 1280, [](auto& q) { return Of(q.GetCertInfo("SN", 1)); }},
};

// Those with a rule of their own.
inline const std::vector<Operation> kOthers = {
    {"AsymDec", 0, [](auto& q) { return Of(q.AsymDec("SN", 3, 2, "cipher")); }},
    {"GetErrorMsg", 0, [](auto& q) { return Of(q.GetErrorMsg(5)); }},
    {"GenerateCertRequest", 0, [](auto& q) { return Of(q.GenerateCertRequest("SN", "")); }},
    {"Batch_InitAndGenerateCertRequest", 0,
     [](auto& q) { return Of(q.Batch_InitAndGenerateCertRequest("SN", false, "")); }},
    {"WaitForKeyEvent", 0, [](auto& q) { return Of(OneEvent(q)); }},
};

}  // namespace kesta

#endif
