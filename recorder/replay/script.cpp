#include "script.h"

#include <algorithm>

namespace kesta {
namespace recorder {

void requireSameFunctions(const Recording& recording) {
    if (recording.description.at("functions") != describeFunctions()) {
        throw BadRecording("this recording was made by another version, with other functions");
    }
}

Script::Script(const std::string& path) : m_recording(readRecording(path)) {
    requireSameFunctions(m_recording);
    m_discretion.full = m_recording.full;
    const std::string key = m_recording.keyBytes();
    if (m_recording.full && key.size() != kKeySize) throw BadRecording("its key is missing");
    std::copy(key.begin(), key.end(), m_discretion.key);
    for (const Call& call : m_recording.calls) {
        ProcessScript& process = m_processes[call.process];
        if (process.empty()) m_order.push_back(call.process);
        process[call.thread].calls.push_back(&call);
        m_calls[call.number] = &call;
    }
    std::sort(m_order.begin(), m_order.end());
}

const Call* Script::call(std::uint64_t number) const {
    const auto found = m_calls.find(number);
    return found == m_calls.end() ? nullptr : found->second;
}

bool Script::fits(const Call& call, const LiveCall& live) const {
    return call.function == live.function &&
           !differenceOf(call.arguments, argumentsOf(live, m_discretion), functionOf(call),
                         exact());
}

}  // namespace recorder
}  // namespace kesta
