#include "recording.h"

#include <pthread.h>

#include <atomic>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace recording {

Answer& Answer::returns(int result) {
    code = result;
    return *this;
}

Answer& Answer::writes(std::size_t argument, std::string bytes) {
    written[argument] = std::move(bytes);
    return *this;
}

Answer& Answer::writes_number(std::size_t argument, std::uint32_t number) {
    numbers[argument] = number;
    return *this;
}

Answer& Answer::request(std::string text) {
    has_request = true;
    request_text = std::move(text);
    return *this;
}

Answer& Answer::fills(std::string text) {
    has_filled = true;
    filled_text = std::move(text);
    return *this;
}

Answer& Answer::message(std::string text) {
    message_is_null = false;
    message_text = std::move(text);
    return *this;
}

Answer& Answer::null_message() {
    message_is_null = true;
    return *this;
}

Answer& Answer::does(std::function<void(const Call&)> what) {
    action = std::move(what);
    return *this;
}

Answer& Recorder::on(const std::string& entry) {
    std::lock_guard<std::mutex> lock(mutex_);
    return always_[entry];
}

Answer& Recorder::on(const std::string& entry, int nth) {
    std::lock_guard<std::mutex> lock(mutex_);
    return nth_[{entry, nth}];
}

void Recorder::capture(const std::string& entry, std::size_t argument, std::size_t size) {
    std::lock_guard<std::mutex> lock(mutex_);
    captures_[{entry, argument}] = size;
}

std::size_t Recorder::captured(const std::string& entry, std::size_t argument) const {
    std::lock_guard<std::mutex> lock(mutex_);
    const auto found = captures_.find({entry, argument});
    return found == captures_.end() ? 0 : found->second;
}

std::vector<Call> Recorder::calls() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return calls_;
}

std::vector<Call> Recorder::calls(const std::string& entry) const {
    std::vector<Call> found;
    for (const Call& call : calls()) {
        if (call.entry == entry) found.push_back(call);
    }
    return found;
}

Call Recorder::only(const std::string& entry) const {
    const std::vector<Call> found = calls(entry);
    if (found.size() != 1) {
        throw std::logic_error(entry + " was called " + std::to_string(found.size()) +
                               " times, not once");
    }
    return found.front();
}

std::vector<std::string> Recorder::trace() const {
    std::vector<std::string> lines;
    for (const Call& call : calls()) lines.push_back(call.describe());
    return lines;
}

std::vector<std::string> Recorder::names() const {
    std::vector<std::string> found;
    for (const Call& call : calls()) found.push_back(call.entry);
    return found;
}

std::vector<std::string> Recorder::lookups() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return lookups_;
}

void Recorder::forget() {
    std::lock_guard<std::mutex> lock(mutex_);
    calls_.clear();
    counts_.clear();
    lookups_.clear();
}

void Recorder::when_looked_up(std::function<void()> what) {
    std::lock_guard<std::mutex> lock(mutex_);
    looked_up_ = std::move(what);
}

void Recorder::when_leaving(std::function<void()> what) {
    std::lock_guard<std::mutex> lock(mutex_);
    leaving_ = std::move(what);
}

void Recorder::leave() {
    std::function<void()> last;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        last = leaving_;
    }
    if (last) last();
}

void Recorder::hide(const std::string& entry) {
    std::lock_guard<std::mutex> lock(mutex_);
    hidden_ = entry;
}

void Recorder::answer_with(std::function<Answer(const Call&)> what) {
    std::lock_guard<std::mutex> lock(mutex_);
    answerer_ = std::move(what);
}

bool Recorder::note_lookup(const char* name) {
    std::function<void()> look;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        look = looked_up_;
    }
    if (look) look();
    std::lock_guard<std::mutex> lock(mutex_);
    lookups_.emplace_back(name);
    return hidden_ != name;
}

Answer Recorder::record(const Call& call) {
    std::lock_guard<std::mutex> lock(mutex_);
    calls_.push_back(call);
    if (answerer_) return answerer_(call);
    const int nth = ++counts_[call.entry];
    const auto special = nth_.find({call.entry, nth});
    if (special != nth_.end()) return special->second;
    const auto usual = always_.find(call.entry);
    return usual == always_.end() ? Answer() : usual->second;
}

const char* Recorder::keep_message(const Answer& answer) {
    if (answer.message_is_null) return nullptr;
    std::lock_guard<std::mutex> lock(mutex_);
    // Kept by content, so that a pointer handed out stays good for the life of the process.
    return messages_.emplace(answer.message_text, answer.message_text).first->second.c_str();
}

namespace {

// Fixed places, because operator delete[] must not allocate.
constexpr std::size_t most_live = 4096;
std::atomic<const void*> live[most_live];
std::atomic<int> live_count{0};

}  // namespace

char* Recorder::new_request(const std::string& text) {
    char* const block = new char[text.size() + 1];
    std::memcpy(block, text.c_str(), text.size() + 1);
    for (auto& place : live) {
        const void* empty = nullptr;
        if (place.compare_exchange_strong(empty, block)) {
            ++live_count;
            return block;
        }
    }
    delete[] block;
    throw std::length_error("too many request texts are alive");
}

int Recorder::live_requests() const {
    return live_count;
}

void released(const void* block) noexcept {
    // Asked at every delete[] of the process, and nearly always there is none.
    if (!block || live_count == 0) return;
    for (auto& place : live) {
        const void* expected = block;
        if (place.load(std::memory_order_relaxed) == block &&
            place.compare_exchange_strong(expected, nullptr)) {
            --live_count;
            return;
        }
    }
}

namespace {

struct Leaving {
    ~Leaving() { recorder().leave(); }
};
const Leaving leaving;

}  // namespace

Recorder& recorder() {
    // Never destroyed: a thread may still be inside an entry point when the process ends.
    static Recorder* const instance = [] {
        // A child of fork() may ask while another thread of its parent was being recorded.
        pthread_atfork([] { recorder().hold(); }, [] { recorder().release(); },
                       [] { recorder().release(); });
        return new Recorder;
    }();
    return *instance;
}

}  // namespace recording
