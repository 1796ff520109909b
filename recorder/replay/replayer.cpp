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

bool IsExport(const Span& span) {
    return BoundaryOf(span.live.function) == Boundary::kExports;
}

std::uint64_t Now() {
    timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<std::uint64_t>(time.tv_sec) * 1000000000 +
           static_cast<std::uint64_t>(time.tv_nsec);
}

std::string Named(const Call& call, const char* function) {
    return "call " + std::to_string(call.number) + ", " + function;
}

}  // namespace

Replayer::Replayer(const std::string& path, const std::string& mode, ReplayState& state)
    : script_(path),
      state_(state),
      tolerant_(mode.find('t') != std::string::npos),
      timed_(mode.find('d') != std::string::npos) {}

unsigned Replayer::NewGeneration() {
    static std::atomic<unsigned> count{0};
    return ++count;
}

void Replayer::Forked() {
    generation_ = NewGeneration();
    process_ = nullptr;
}

// ---- Which part of the recording a thread follows -----------------------------------------------

// The first process that began with this call; else the first that nobody follows, where the
// difference will show.
ProcessScript* Replayer::ClaimProcess(const Span& span) {
    auto* const claims = reinterpret_cast<unsigned char*>(&state_ + 1);
    const auto& processes = script_.processes();
    for (const bool fitting : {true, false}) {
        for (std::size_t i = 0; i < processes.size(); ++i) {
            ProcessScript& process = script_.FindProcess(processes[i]);
            const bool fits = std::any_of(process.begin(), process.end(), [&](const auto& thread) {
                return script_.Fits(*thread.second.calls.front(), span.live);
            });
            if (fitting && !fits) continue;
            if (__atomic_exchange_n(claims + i, 1, __ATOMIC_ACQ_REL) != 0) continue;
            for (auto& thread : process) thread.second.claimed = false;
            return &process;
        }
    }
    return nullptr;
}

void Replayer::ClaimThread(Thread& thread, const Span& span) {
    if (process_ == nullptr) process_ = ClaimProcess(span);
    if (process_ == nullptr) return;
    for (const bool fitting : {true, false}) {
        for (auto& [number, script] : *process_) {
            if (script.claimed) continue;
            if (fitting && !script_.Fits(*script.calls.front(), span.live)) continue;
            script.claimed = true;
            thread.script = &script;
            return;
        }
    }
}

Replayer::Thread& Replayer::ThisThread(const Span& span) {
    static thread_local Thread* t_thread = nullptr;  // never freed: calls come late
    if (t_thread == nullptr) t_thread = new Thread;
    if (t_thread->generation != generation_) {
        *t_thread = Thread();
        t_thread->generation = generation_;
        ClaimThread(*t_thread, span);
    }
    return *t_thread;
}

const Call* Replayer::Following(const Thread& thread) {
    if (thread.script == nullptr || thread.next >= thread.script->calls.size()) return nullptr;
    return thread.script->calls[thread.next];
}

void Replayer::See(const Call& call) {
    auto* const seen = reinterpret_cast<unsigned char*>(&state_ + 1) + script_.processes().size();
    __atomic_store_n(seen + (&call - script_.recording().calls.data()), 1, __ATOMIC_RELAXED);
}

void Replayer::Take(Thread& thread, const Call& call) {
    See(call);
    ++thread.next;
}

// How often a client polls is a matter of time.
void Replayer::SkipIdlePolls(Thread& thread, std::uint64_t parent) {
    const Call* next = Following(thread);
    while (next != nullptr && next->parent == parent && IsIdlePoll(*next)) {
        Take(thread, *next);
        next = Following(thread);
    }
}

// So is how often it must stop a wait that has not begun.
void Replayer::SkipRepeatedStops(Thread& thread, const Span& span) {
    if (!thread.stopped || span.live.function == kStopDetectUKey) return;
    const Call* next = Following(thread);
    while (next != nullptr && next->function == kStopDetectUKey) {
        Take(thread, *next);
        next = Following(thread);
    }
}

// ---- Differences --------------------------------------------------------------------------------

bool Replayer::Differs() const {
    return __atomic_load_n(&state_.differs, __ATOMIC_ACQUIRE) != 0;
}

void Replayer::Differ(const std::string& text) {
    std::uint32_t none = 0;
    if (!__atomic_compare_exchange_n(&state_.differs, &none, 1, false, __ATOMIC_ACQ_REL,
                                     __ATOMIC_RELAXED)) {
        return;
    }
    const std::size_t length = std::min(text.size(), sizeof state_.text - 1);
    std::memcpy(state_.text, text.data(), length);
    state_.text[length] = '\0';
    __atomic_store_n(&state_.differs, 2, __ATOMIC_RELEASE);
}

void Replayer::Differ(const Call& call, const Difference& difference) {
    Differ(Named(call, script_.FunctionOf(call).name.c_str()) + ": " + difference.what +
           " was recorded as " + difference.expected + ", now it is " + difference.found);
}

// ---- Calls --------------------------------------------------------------------------------------

void Replayer::Enter(Span& span) {
    const unsigned stops = stops_;
    Begin(span);
    if (span.late) AwaitStop(span, stops);
}

void Replayer::Begin(Span& span) {
    const Lock lock(mutex_);
    span.live.NoteRoom();
    if (span.live.function == kStopDetectUKey) ++stops_;
    if (Differs() && !tolerant_) {
        span.refused = true;
        return;
    }
    if (tolerant_ || span.live.function == kWaitForEvent) return;
    Thread& thread = ThisThread(span);
    span.late = IsLateWait(thread, span);
    if (span.late) return;
    Expect(thread, span);
    span.refused = span.number == 0 && Differs();
    if (IsExport(span)) {
        thread.inside = span.number;
        thread.stopped = span.live.function == kStopDetectUKey;
    }
}

// A wait that begins where the recorded thread had ended: time decides whether a client that is
// about to stop begins another.
bool Replayer::IsLateWait(const Thread& thread, const Span& span) const {
    return span.live.function == kWaitForKeyEvent && thread.next > 0 &&
           Following(thread) == nullptr;
}

// Nothing comes in it. A client that does not stop it waits for more than was recorded.
void Replayer::AwaitStop(Span& span, unsigned stops) {
    constexpr std::uint64_t kPatience = 5000000000;
    constexpr timespec kMoment = {0, 10000000};
    const std::uint64_t began = Now();
    span.refused = true;
    while (stops_ == stops) {
        if (Now() - began > kPatience) {
            Differ("a call of WaitForKeyEvent comes where the recording has no further call");
        }
        if (Differs()) return;
        nanosleep(&kMoment, nullptr);
    }
    span.refusal = KESTA_OK;
    auto* const eventType = reinterpret_cast<unsigned*>(span.live.raw[0]);
    if (eventType != nullptr) *eventType = KESTA_EVENT_STOPPED;
}

void Replayer::Expect(Thread& thread, Span& span) {
    const char* const name = span.live.row().name;
    if (!IsExport(span)) SkipIdlePolls(thread, thread.inside);
    SkipRepeatedStops(thread, span);
    const Call* const next = Following(thread);
    const bool repeats = span.live.function == kStopDetectUKey && thread.stopped;
    if (repeats && (next == nullptr || next->function != kStopDetectUKey)) return;
    if (next == nullptr) {
        return Differ(std::string("a call of ") + name +
                      " comes where the recording has no further call");
    }
    if (next->function != span.live.function) {
        return Differ(Named(*next, script_.FunctionOf(*next).name.c_str()) +
                      " was recorded, now it is " + name);
    }
    if (const auto difference =
            DifferenceOf(next->arguments, ArgumentsOf(span.live, script_.discretion()),
                         script_.FunctionOf(*next), script_.Exact())) {
        return Differ(*next, *difference);
    }
    Take(thread, *next);
    span.number = next->number;
}

void Replayer::Leave(Span& span) {
    const Lock lock(mutex_);
    if (tolerant_ || span.refused || !IsExport(span) || Differs() || span.number == 0) return;
    Thread& thread = ThisThread(span);
    SkipIdlePolls(thread, span.number);
    CompareEnd(thread, span);
    thread.inside = 0;
}

void Replayer::CompareEnd(Thread& thread, const Span& span) {
    const Call& call = *script_.FindCall(span.number);
    const Call* const next = Following(thread);
    if (next != nullptr && next->parent == call.number) {
        return Differ(Named(*next, script_.FunctionOf(*next).name.c_str()) + " was recorded, now " +
                      script_.FunctionOf(call).name + " ends without it");
    }
    if (!call.ended()) return;
    if (call.how != span.live.how()) {
        return Differ(Named(call, script_.FunctionOf(call).name.c_str()) +
                      " ends in another way: by returning, an exception or a cancellation");
    }
    const Json result = ResultOf(span.live);
    if (!SameValue(call.result, result, script_.Exact())) {
        return Differ(call, {"the result", InMessage(call.result), InMessage(result)});
    }
    if (const auto difference =
            DifferenceOf(call.outputs, OutputsOf(span.live, script_.discretion()),
                         script_.FunctionOf(call), script_.Exact())) {
        return Differ(call, *difference);
    }
    // The latest of several threads sets it.
    const Json lastError = __atomic_load_n(span.lastError, __ATOMIC_RELAXED);
    if (process_->size() == 1 && call.lastError != lastError) {
        Differ(call, {"G_LastError", InMessage(call.lastError), InMessage(lastError)});
    }
}

Then Replayer::Answer(Span& span) {
    const Lock lock(mutex_);
    span.live.result = static_cast<std::uint64_t>(std::int64_t{kReplayDiffers});
    if (span.live.kind == ResultKind::kText) span.live.result = 0;
    if (span.refused) return Then::kReturn;
    __atomic_add_fetch(&state_.answered, 1, __ATOMIC_RELAXED);
    if (tolerant_) {
        const Call* const call = Tolerated(span);
        return call == nullptr ? Then::kReturn : Perform(*call, span);
    }
    if (span.live.function == kWaitForEvent) return Poll(ThisThread(span), span);
    const Call* const call = script_.FindCall(span.number);
    return call == nullptr ? Then::kReturn : Perform(*call, span);
}

Then Replayer::Perform(const Call& call, Span& span) {
    if (!call.ended()) {
        Differ(Named(call, script_.FunctionOf(call).name.c_str()) +
               " had not ended when its process did");
        return Then::kReturn;
    }
    if (call.how == kThrew) return Then::kThrow;
    if (call.how == kCancelled) return Then::kWaitForCancellation;
    try {
        AnswerFrom(call, span.live);
    } catch (const BadRecording&) {
        Differ(Named(call, script_.FunctionOf(call).name.c_str()) +
               " was recorded with the outputs of another function");
    }
    return Then::kReturn;
}

bool Replayer::IsDue(const Call& call) const {
    if (!timed_) return true;
    const auto began = script_.recording().description.value("time", std::uint64_t{0});
    return call.end - began <= Now() - state_.start;
}

Then Replayer::Poll(Thread& thread, Span& span) {
    span.live.result = kNoEvent;
    for (;;) {
        const Call* const next = Following(thread);
        if (next == nullptr || next->function != kWaitForEvent || next->parent != thread.inside) {
            return Then::kReturn;
        }
        if (!IsIdlePoll(*next)) {
            if (!IsDue(*next)) return Then::kReturn;
            Take(thread, *next);
            return Perform(*next, span);
        }
        span.live.result = static_cast<std::uint64_t>(next->result.get<std::int64_t>());
        const auto& calls = thread.script->calls;
        const bool last = thread.next + 1 >= calls.size() ||
                          calls[thread.next + 1]->function != kWaitForEvent ||
                          calls[thread.next + 1]->parent != next->parent;
        if (last) return Then::kReturn;
        Take(thread, *next);
    }
}

// ---- Tolerant -----------------------------------------------------------------------------------

// The first call of the recording with these arguments that has not answered yet; else the latest
// that has.
const Call* Replayer::Tolerated(const Span& span) {
    const Call* used = nullptr;
    for (const Call& call : script_.recording().calls) {
        if (IsIdlePoll(call) || !call.ended() || !script_.Fits(call, span.live)) continue;
        const bool isEvent = call.function == kWaitForEvent;
        if (used_.count(call.number) != 0) {
            if (!isEvent) used = &call;
            continue;
        }
        if (isEvent && !IsDue(call)) break;
        used_.insert(call.number);
        See(call);
        return &call;
    }
    if (used == nullptr && span.live.function != kWaitForEvent) {
        Differ(std::string("the recording has no call of ") + span.live.row().name +
               " with these arguments: " + InMessage(ArgumentsOf(span.live, script_.discretion())));
    }
    return used;
}

}  // namespace recorder
}  // namespace kesta
