// The library as its contract tells it, written plainly: every text a std::string, every rule in
// the order of its words. It is handed what was seen of one call, follows the rules with the
// answers that the token gave, and says where the two differ.
#ifndef KESTA_CALLS_MODEL_H
#define KESTA_CALLS_MODEL_H

#include <cstdint>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "recording.h"

namespace calls {

struct Disagreement : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// What lasts from call to call.
struct State {
    struct Kept {
        std::string requests, information, serial;
    };
    bool initialised = false;
    bool bound = false;
    bool running = false;  // a wait for events, until a stop
    int last_error = 0;
    std::optional<Kept> kept;
    // The latest that was ever kept: what a client comes back for, kept still or not.
    std::optional<Kept> remembered;
    std::map<unsigned, std::string> slots;
};

// What stands in a binding's way.
struct Obstacle {
    bool library_is_gone = false;
    std::string missing_entry;
};

struct Asked {
    recording::Call call;
    recording::Answer answer;
    bool throws = false;
    bool stops = false;  // calls StopDetectUKey while it is asked
    int last_error = 0;  // as the entry point found it
};

// What was seen of one call.
struct Seen {
    std::vector<Asked> asked;
    int sleeps = 0;
    unsigned capacity = 0;  // in the length that was handed in
};

// What the string library throws for an index out of range.
struct Thrown {};

// An argument as an entry point must find it.
struct Expected {
    recording::Argument::Kind kind;
    bool null = false;
    std::int64_t value = 0;
    std::string bytes{};
    bool any_bytes = false;
    const void* address = nullptr;  // null: any
};
Expected text(const char* text);
Expected text(const std::string& text);
Expected value(std::int64_t number);
Expected memory(std::string bytes);
Expected zeroes(std::size_t size);
Expected unread_memory();
Expected length(std::uint32_t number, const void* address = nullptr);
Expected no_request();
Expected empty_string();
Expected pointer(const void* exact);
Expected work_buffer();

struct Record {
    std::string tag, body;
    bool hexadecimal = false;
};

class Model {
public:
    Model(State& state, const Obstacle& obstacle, const Seen& seen);

    // The frame of an export.
    int initialise();
    void initialise_on_first_use();
    int store(int code) { return state.last_error = code; }
    int refuse() { return store(-401); }
    void log(std::string tag, std::string body) { records.push_back({tag, body, false}); }
    void log_hexadecimal(const std::string& tag, const std::string& bytes);
    int log_end(const std::string& tag, int code);

    // An entry point is asked; what it answers.
    const Asked& ask(const char* entry, const std::vector<Expected>& arguments);
    // The same behind the guard: its code, or -101 where nothing is bound.
    int forward(const char* entry, const std::vector<Expected>& arguments);
    // Of the latest one asked: what it put into zeroed memory, as a text of at most size
    // characters.
    std::string answered_text(std::size_t argument, std::size_t size) const;
    // The same into the caller's own buffer and length.
    void answered_directly(int buffer_argument, int length_argument);
    std::uint32_t answered_length(std::size_t argument, std::uint32_t before) const;

    // The caller's buffer and length.
    void write(const std::string& bytes);
    void write_text(const std::string& text) { write(text + '\0'); }
    std::string buffer_text() const;
    int answer_size(std::uint32_t size);

    // What is more than forwarding.
    int answer_kept(const char* serial, const char* information, bool buffer, bool& answered);
    int hand_out_requests(const std::string& requests, const char* serial, const char* information,
                          bool buffer);
    int make_requests(const char* serial, const std::string& information, std::string& requests);
    int make_batch(const char* serial, int flag, const std::string& information,
                   std::string& requests);
    int import_key(const std::string& serial, std::string key, const std::string& tag);
    int import_certificate(const Expected& serial, const std::string& certificate);
    int import_bundle(const std::string& serial, std::string bundle);
    int wait();
    int stop();

    // Everything that was seen is accounted for.
    void finish() const;

    State& state;
    std::vector<Record> records;
    std::vector<std::string> lookups;
    std::string written;  // over the caller's buffer, from its beginning
    std::uint32_t length;
    std::optional<std::uint32_t> event_kind;

private:
    void scan_slots();
    int import_pass(const std::string& serial, const std::string& bundle, const std::string& opener,
                    const std::string& tag, bool& imported);

    const Obstacle& obstacle_;
    const Seen& seen_;
    std::size_t next_ = 0;
    int sleeps_ = 0;
};

// What a caller's buffer holds before a call: a text of forty characters, and no NUL behind it.
constexpr std::size_t buffer_size = 20000;
char untouched_byte(std::size_t index);

// What a binding looks up, in its order.
const std::vector<std::string>& token_entries();

// Rules over texts.
std::string without(std::string text, const std::string& characters);
std::string key_body(const std::string& key);
// Three ways to look at a bundle: 1 malformed, 2 one certificate, 3 sections.
int bundle_kind(const std::string& text);

}  // namespace calls

#endif
