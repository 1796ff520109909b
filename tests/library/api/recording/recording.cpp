#include "recording.h"

#include <pthread.h>

#include <atomic>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace recording {

Answer& Answer::Returns(int result) {
    code = result;
    return *this;
}

Answer& Answer::Writes(std::size_t argument, std::string bytes) {
    written[argument] = std::move(bytes);
    return *this;
}

Answer& Answer::WritesNumber(std::size_t argument, std::uint32_t number) {
    numbers[argument] = number;
    return *this;
}

Answer& Answer::Request(std::string text) {
    hasRequest = true;
    requestText = std::move(text);
    return *this;
}

Answer& Answer::Fills(std::string text) {
    hasFilled = true;
    filledText = std::move(text);
    return *this;
}

Answer& Answer::Message(std::string text) {
    messageIsNull = false;
    messageText = std::move(text);
    return *this;
}

Answer& Answer::NullMessage() {
    messageIsNull = true;
    return *this;
}

Answer& Answer::Does(std::function<void(const Call&)> what) {
    action = std::move(what);
    return *this;
}

Answer& Recorder::On(const std::string& entry) {
    std::lock_guard<std::mutex> lock(mutex_);
    return always_[entry];
}

Answer& Recorder::On(const std::string& entry, int nth) {
    std::lock_guard<std::mutex> lock(mutex_);
    return nth_[{entry, nth}];
}

void Recorder::Capture(const std::string& entry, std::size_t argument, std::size_t size) {
    std::lock_guard<std::mutex> lock(mutex_);
    captures_[{entry, argument}] = size;
}

std::size_t Recorder::Captured(const std::string& entry, std::size_t argument) const {
    std::lock_guard<std::mutex> lock(mutex_);
    const auto found = captures_.find({entry, argument});
    return found == captures_.end() ? 0 : found->second;
}

std::vector<Call> Recorder::Calls() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return calls_;
}

std::vector<Call> Recorder::Calls(const std::string& entry) const {
    std::vector<Call> found;
    for (const Call& call : Calls()) {
        if (call.entry == entry) found.push_back(call);
    }
    return found;
}

Call Recorder::Only(const std::string& entry) const {
    const std::vector<Call> found = Calls(entry);
    if (found.size() != 1) {
        throw std::logic_error(entry + " was called " + std::to_string(found.size()) +
                               " times, not once");
    }
    return found.front();
}

std::vector<std::string> Recorder::Trace() const {
    std::vector<std::string> lines;
    for (const Call& call : Calls()) lines.push_back(call.Describe());
    return lines;
}

std::vector<std::string> Recorder::Names() const {
    std::vector<std::string> found;
    for (const Call& call : Calls()) found.push_back(call.entry);
    return found;
}

std::vector<std::string> Recorder::Lookups() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return lookups_;
}

void Recorder::Forget() {
    std::lock_guard<std::mutex> lock(mutex_);
    calls_.clear();
    counts_.clear();
    lookups_.clear();
}

void Recorder::WhenLookedUp(std::function<void()> what) {
    std::lock_guard<std::mutex> lock(mutex_);
    lookedUp_ = std::move(what);
}

void Recorder::WhenLeaving(std::function<void()> what) {
    std::lock_guard<std::mutex> lock(mutex_);
    leaving_ = std::move(what);
}

void Recorder::Leave() {
    std::function<void()> last;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        last = leaving_;
    }
    if (last) last();
}

void Recorder::Hide(const std::string& entry) {
    std::lock_guard<std::mutex> lock(mutex_);
    hidden_ = entry;
}

void Recorder::AnswerWith(std::function<Answer(const Call&)> what) {
    std::lock_guard<std::mutex> lock(mutex_);
    answerer_ = std::move(what);
}

bool Recorder::NoteLookup(const char* name) {
    std::function<void()> look;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        look = lookedUp_;
    }
    if (look) look();
    std::lock_guard<std::mutex> lock(mutex_);
    lookups_.emplace_back(name);
    return hidden_ != name;
}

Answer Recorder::Record(const Call& call) {
    std::lock_guard<std::mutex> lock(mutex_);
    calls_.push_back(call);
    if (answerer_) return answerer_(call);
    const int nth = ++counts_[call.entry];
    const auto special = nth_.find({call.entry, nth});
    if (special != nth_.end()) return special->second;
    const auto usual = always_.find(call.entry);
    return usual == always_.end() ? Answer() : usual->second;
}

const char* Recorder::KeepMessage(const Answer& answer) {
    if (answer.messageIsNull) return nullptr;
    std::lock_guard<std::mutex> lock(mutex_);
    // Kept by content, so that a pointer handed out stays good for the life of the process.
    return messages_.emplace(answer.messageText, answer.messageText).first->second.c_str();
}

namespace {

// Fixed places, because operator delete[] must not allocate.
constexpr std::size_t most_live = 4096;
std::atomic<const void*> live[most_live];
std::atomic<int> liveCount{0};

}  // namespace

char* Recorder::NewRequest(const std::string& text) {
    char* const block = new char[text.size() + 1];
    std::memcpy(block, text.c_str(), text.size() + 1);
    for (auto& place : live) {
        const void* empty = nullptr;
        if (place.compare_exchange_strong(empty, block)) {
            ++liveCount;
            return block;
        }
    }
    delete[] block;
    throw std::length_error("too many request texts are alive");
}

int Recorder::LiveRequests() const {
    return liveCount;
}

void Released(const void* block) noexcept {
    // Asked at every delete[] of the process, and nearly always there is none.
    if (!block || liveCount == 0) return;
    for (auto& place : live) {
        const void* expected = block;
        if (place.load(std::memory_order_relaxed) == block &&
            place.compare_exchange_strong(expected, nullptr)) {
            --liveCount;
            return;
        }
    }
}

namespace {

struct Leaving {
    ~Leaving() { TheRecorder().Leave(); }
};
const Leaving leaving;

}  // namespace

Recorder& TheRecorder() {
    // Never destroyed: a thread may still be inside an entry point when the process ends.
    static Recorder* const instance = [] {
        // A child of fork() may ask while another thread of its parent was being recorded.
        pthread_atfork([] { TheRecorder().Hold(); }, [] { TheRecorder().Release(); },
                       [] { TheRecorder().Release(); });
        return new Recorder;
    }();
    return *instance;
}

}  // namespace recording
