#include "replayer.h"

#include <time.h>

#include <algorithm>
#include <atomic>
#include <cstring>

#include "answer.h"

namespace kesta {
namespace recorder {
namespace {

using Lock = std::lock_guard<std::recursive_mutex>;

// What a poll answers before the recording has said it.
constexpr std::uint64_t kNoEvent = 1;

bool isExport(const Span& span) {
    return boundaryOf(span.live.function) == Boundary::kExports;
}

std::uint64_t now() {
    timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<std::uint64_t>(time.tv_sec) * 1000000000 +
           static_cast<std::uint64_t>(time.tv_nsec);
}

std::string named(const Call& call, const char* function) {
    return "call " + std::to_string(call.number) + ", " + function;
}

}  // namespace

Replayer::Replayer(const std::string& path, const std::string& mode, ReplayState& state)
    : m_script(path),
      m_state(state),
      m_tolerant(mode.find('t') != std::string::npos),
      m_timed(mode.find('d') != std::string::npos) {}

unsigned Replayer::newGeneration() {
    static std::atomic<unsigned> count{0};
    return ++count;
}

void Replayer::forked() {
    m_generation = newGeneration();
    m_process = nullptr;
}

// ---- Which part of the recording a thread follows -----------------------------------------------

// The first process that began with this call; else the first that nobody follows, where the
// difference will show.
ProcessScript* Replayer::claimProcess(const Span& span) {
    auto* const claims = reinterpret_cast<unsigned char*>(&m_state + 1);
    const auto& processes = m_script.processes();
    for (const bool fitting : {true, false}) {
        for (std::size_t i = 0; i < processes.size(); ++i) {
            ProcessScript& process = m_script.process(processes[i]);
            const bool fits = std::any_of(process.begin(), process.end(), [&](const auto& thread) {
                return m_script.fits(*thread.second.calls.front(), span.live);
            });
            if (fitting && !fits) continue;
            if (__atomic_exchange_n(claims + i, 1, __ATOMIC_ACQ_REL) != 0) continue;
            for (auto& thread : process) thread.second.claimed = false;
            return &process;
        }
    }
    return nullptr;
}

void Replayer::claimThread(Thread& thread, const Span& span) {
    if (m_process == nullptr) m_process = claimProcess(span);
    if (m_process == nullptr) return;
    for (const bool fitting : {true, false}) {
        for (auto& [number, script] : *m_process) {
            if (script.claimed) continue;
            if (fitting && !m_script.fits(*script.calls.front(), span.live)) continue;
            script.claimed = true;
            thread.script = &script;
            return;
        }
    }
}

Replayer::Thread& Replayer::thisThread(const Span& span) {
    static thread_local Thread* t_thread = nullptr;  // never freed: calls come late
    if (t_thread == nullptr) t_thread = new Thread;
    if (t_thread->generation != m_generation) {
        *t_thread = Thread();
        t_thread->generation = m_generation;
        claimThread(*t_thread, span);
    }
    return *t_thread;
}

const Call* Replayer::following(const Thread& thread) {
    if (thread.script == nullptr || thread.next >= thread.script->calls.size()) return nullptr;
    return thread.script->calls[thread.next];
}

void Replayer::see(const Call& call) {
    auto* const seen = reinterpret_cast<unsigned char*>(&m_state + 1) + m_script.processes().size();
    __atomic_store_n(seen + (&call - m_script.recording().calls.data()), 1, __ATOMIC_RELAXED);
}

void Replayer::take(Thread& thread, const Call& call) {
    see(call);
    ++thread.next;
}

// How often a client polls is a matter of time.
void Replayer::skipIdlePolls(Thread& thread, std::uint64_t parent) {
    const Call* next = following(thread);
    while (next != nullptr && next->parent == parent && isIdlePoll(*next)) {
        take(thread, *next);
        next = following(thread);
    }
}

// So is how often it must stop a wait that has not begun.
void Replayer::skipRepeatedStops(Thread& thread, const Span& span) {
    if (!thread.stopped || span.live.function == kStopDetectUKey) return;
    const Call* next = following(thread);
    while (next != nullptr && next->function == kStopDetectUKey) {
        take(thread, *next);
        next = following(thread);
    }
}

// ---- Differences --------------------------------------------------------------------------------

bool Replayer::differs() const {
    return __atomic_load_n(&m_state.differs, __ATOMIC_ACQUIRE) != 0;
}

void Replayer::differ(const std::string& text) {
    std::uint32_t none = 0;
    if (!__atomic_compare_exchange_n(&m_state.differs, &none, 1, false, __ATOMIC_ACQ_REL,
                                     __ATOMIC_RELAXED)) {
        return;
    }
    const std::size_t length = std::min(text.size(), sizeof m_state.text - 1);
    std::memcpy(m_state.text, text.data(), length);
    m_state.text[length] = '\0';
    __atomic_store_n(&m_state.differs, 2, __ATOMIC_RELEASE);
}

void Replayer::differ(const Call& call, const Difference& difference) {
    differ(named(call, m_script.functionOf(call).name.c_str()) + ": " + difference.what +
           " was recorded as " + difference.expected + ", now it is " + difference.found);
}

// ---- Calls --------------------------------------------------------------------------------------

void Replayer::enter(Span& span) {
    const Lock lock(m_mutex);
    span.live.noteRoom();
    if (differs() && !m_tolerant) {
        span.refused = true;
        return;
    }
    if (m_tolerant || span.live.function == kWaitForEvent) return;
    Thread& thread = thisThread(span);
    expect(thread, span);
    span.refused = span.number == 0 && differs();
    if (isExport(span)) {
        thread.inside = span.number;
        thread.stopped = span.live.function == kStopDetectUKey;
    }
}

void Replayer::expect(Thread& thread, Span& span) {
    const char* const name = span.live.row().name;
    if (!isExport(span)) skipIdlePolls(thread, thread.inside);
    skipRepeatedStops(thread, span);
    const Call* const next = following(thread);
    const bool repeats = span.live.function == kStopDetectUKey && thread.stopped;
    if (repeats && (next == nullptr || next->function != kStopDetectUKey)) return;
    if (next == nullptr) {
        return differ(std::string("a call of ") + name +
                      " comes where the recording has no further call");
    }
    if (next->function != span.live.function) {
        return differ(named(*next, m_script.functionOf(*next).name.c_str()) +
                      " was recorded, now it is " + name);
    }
    if (const auto difference =
            differenceOf(next->arguments, argumentsOf(span.live, m_script.discretion()),
                         m_script.functionOf(*next), m_script.exact())) {
        return differ(*next, *difference);
    }
    take(thread, *next);
    span.number = next->number;
}

void Replayer::leave(Span& span) {
    const Lock lock(m_mutex);
    if (m_tolerant || span.refused || !isExport(span) || differs() || span.number == 0) return;
    Thread& thread = thisThread(span);
    skipIdlePolls(thread, span.number);
    compareEnd(thread, span);
    thread.inside = 0;
}

void Replayer::compareEnd(Thread& thread, const Span& span) {
    const Call& call = *m_script.call(span.number);
    const Call* const next = following(thread);
    if (next != nullptr && next->parent == call.number) {
        return differ(named(*next, m_script.functionOf(*next).name.c_str()) +
                      " was recorded, now " + m_script.functionOf(call).name + " ends without it");
    }
    if (!call.ended()) return;
    if (call.how != span.live.how()) {
        return differ(named(call, m_script.functionOf(call).name.c_str()) +
                      " ends in another way: by returning, an exception or a cancellation");
    }
    const Json result = resultOf(span.live);
    if (!sameValue(call.result, result, m_script.exact())) {
        return differ(call, {"the result", inMessage(call.result), inMessage(result)});
    }
    if (const auto difference =
            differenceOf(call.outputs, outputsOf(span.live, m_script.discretion()),
                         m_script.functionOf(call), m_script.exact())) {
        return differ(call, *difference);
    }
    // The latest of several threads sets it.
    const Json lastError = __atomic_load_n(span.lastError, __ATOMIC_RELAXED);
    if (m_process->size() == 1 && call.lastError != lastError) {
        differ(call, {"G_LastError", inMessage(call.lastError), inMessage(lastError)});
    }
}

Then Replayer::answer(Span& span) {
    const Lock lock(m_mutex);
    span.live.result = static_cast<std::uint64_t>(std::int64_t{kReplayDiffers});
    if (span.live.kind == ResultKind::kText) span.live.result = 0;
    if (span.refused) return Then::kReturn;
    __atomic_add_fetch(&m_state.answered, 1, __ATOMIC_RELAXED);
    if (m_tolerant) {
        const Call* const call = tolerated(span);
        return call == nullptr ? Then::kReturn : perform(*call, span);
    }
    if (span.live.function == kWaitForEvent) return poll(thisThread(span), span);
    const Call* const call = m_script.call(span.number);
    return call == nullptr ? Then::kReturn : perform(*call, span);
}

Then Replayer::perform(const Call& call, Span& span) {
    if (!call.ended()) {
        differ(named(call, m_script.functionOf(call).name.c_str()) +
               " had not ended when its process did");
        return Then::kReturn;
    }
    if (call.how == kThrew) return Then::kThrow;
    if (call.how == kCancelled) return Then::kWaitForCancellation;
    answerFrom(call, span.live);
    return Then::kReturn;
}

bool Replayer::isDue(const Call& call) const {
    if (!m_timed) return true;
    const auto began = m_script.recording().description.value("time", std::uint64_t{0});
    return call.end - began <= now() - m_state.start;
}

Then Replayer::poll(Thread& thread, Span& span) {
    span.live.result = kNoEvent;
    for (;;) {
        const Call* const next = following(thread);
        if (next == nullptr || next->function != kWaitForEvent || next->parent != thread.inside) {
            return Then::kReturn;
        }
        if (!isIdlePoll(*next)) {
            if (!isDue(*next)) return Then::kReturn;
            take(thread, *next);
            return perform(*next, span);
        }
        span.live.result = static_cast<std::uint64_t>(next->result.get<std::int64_t>());
        const auto& calls = thread.script->calls;
        const bool last = thread.next + 1 >= calls.size() ||
                          calls[thread.next + 1]->function != kWaitForEvent ||
                          calls[thread.next + 1]->parent != next->parent;
        if (last) return Then::kReturn;
        take(thread, *next);
    }
}

// ---- Tolerant -----------------------------------------------------------------------------------

// The first call of the recording with these arguments that has not answered yet; else the latest
// that has.
const Call* Replayer::tolerated(const Span& span) {
    const Call* used = nullptr;
    for (const Call& call : m_script.recording().calls) {
        if (isIdlePoll(call) || !call.ended() || !m_script.fits(call, span.live)) continue;
        const bool isEvent = call.function == kWaitForEvent;
        if (m_used.count(call.number) != 0) {
            if (!isEvent) used = &call;
            continue;
        }
        if (isEvent && !isDue(call)) break;
        m_used.insert(call.number);
        see(call);
        return &call;
    }
    if (used == nullptr && span.live.function != kWaitForEvent) {
        differ(
            std::string("the recording has no call of ") + span.live.row().name +
            " with these arguments: " + inMessage(argumentsOf(span.live, m_script.discretion())));
    }
    return used;
}

}  // namespace recorder
}  // namespace kesta
