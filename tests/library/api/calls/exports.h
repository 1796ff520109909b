// How each export is called at random, and what the model makes of it.
#ifndef KESTA_CALLS_EXPORTS_H
#define KESTA_CALLS_EXPORTS_H

#include <deque>
#include <functional>
#include <string>

#include "draw.h"
#include "model.h"

namespace calls {

// Draws arguments, keeps them alive for the call, and says what they were.
class Arguments {
public:
    Arguments(Draw& draw, const State& state) : draw_(draw), state_(state) {}

    const char* serial(bool may_be_null = true);
    const char* any_text(bool may_be_null = true);
    const char* information(bool may_be_null = true);
    const char* certificate(bool may_be_null = true);
    const char* key();
    const char* bundle();
    const char* list();
    const char* data_name();
    const char* data_value();
    int integer();
    int small_integer() { return say(static_cast<int>(draw_.below(5)) - 1); }
    unsigned number() { return static_cast<unsigned>(integer()); }
    void* some_pointer();
    // The caller's buffer and length, or null. Only one of each in a call.
    char* buffer();
    unsigned* length(bool may_be_null = true);
    int* signed_length(bool may_be_null = true) {
        return reinterpret_cast<int*>(length(may_be_null));
    }

    Draw& draw() { return draw_; }
    const std::string& shown() const { return shown_; }

private:
    const char* say_text(std::string text);
    const char* sometimes_null(bool may_be_null, const char* (Arguments::*other)(bool));
    std::string group();
    std::string key_text();
    int say(int number);
    void say(const std::string& word) { shown_ += (shown_.empty() ? "" : ", ") + word; }

    Draw& draw_;
    const State& state_;
    std::deque<std::string> texts_;
    std::string shown_;
};

// What the client of the calls hands out, the same for all calls.
extern char client_buffer[buffer_size];
extern unsigned client_length;
extern unsigned client_kind;

struct Prepared {
    std::function<int()> call;
    std::function<int(Model&)> expected;
};

struct Row {
    const char* name;
    Prepared (*prepare)(Arguments& draw);
};
const std::vector<Row>& rows();

// What a token that lies answers; it stays within the buffers that it is given.
recording::Answer any_answer(Draw& draw, Asked& asked, int polls);

}  // namespace calls

#endif
