#include "script.h"

#include <algorithm>

namespace kesta {
namespace recorder {

void RequireSameFunctions(const Recording& recording) {
    if (recording.description.at("functions") != DescribeFunctions()) {
        throw BadRecording("this recording was made by another version, with other functions");
    }
}

Script::Script(const std::string& path) : recording_(ReadRecording(path)) {
    RequireSameFunctions(recording_);
    discretion_.full = recording_.full;
    const std::string key = recording_.KeyBytes();
    if (recording_.full && key.size() != kKeySize) throw BadRecording("its key is missing");
    std::copy(key.begin(), key.end(), discretion_.key);
    for (const Call& call : recording_.calls) {
        ProcessScript& process = processes_[call.process];
        if (process.empty()) order_.push_back(call.process);
        process[call.thread].calls.push_back(&call);
        calls_[call.number] = &call;
    }
    std::sort(order_.begin(), order_.end());
}

const Call* Script::FindCall(std::uint64_t number) const {
    const auto found = calls_.find(number);
    return found == calls_.end() ? nullptr : found->second;
}

bool Script::Fits(const Call& call, const LiveCall& live) const {
    return call.function == live.function &&
           !DifferenceOf(call.arguments, ArgumentsOf(live, discretion_), FunctionOf(call), Exact());
}

}  // namespace recorder
}  // namespace kesta
