// The exports in one table: how each is called, what it asks of the token library, and how it
// answers when there is nobody to ask.
#ifndef KESTA_API_EVERY_EXPORT_H
#define KESTA_API_EVERY_EXPORT_H

#include <functional>
#include <string>
#include <vector>

// What the calls are made with, and what the token library answers.
struct Inputs {
    std::string data;    // also the hash, the cipher text
    std::string list;    // of texts to sign
    std::string result;  // that the token library hands out
};

// A call of a test's choice; an export takes of it what it has parameters for.
struct Call {
    const Inputs& in;
    char* buffer;
    unsigned* length;
    int* signed_length() const { return reinterpret_cast<int*>(length); }
};

struct Export {
    Export(std::string export_name, std::function<int(const Call&)> how)
        : name(std::move(export_name)), made(std::move(how)) {}

    // Setters; what is not said does not hold.
    Export& asks(const char* first_entry);
    Export& answered(std::function<void(const std::string& result)> how);
    Export& hands_length_on(int argument, const char* of_entry = "");
    Export& refuses(std::function<int()> call);           // with -401
    Export& does_not_support(std::function<int()> call);  // with -300
    Export& gives_characters(std::size_t count);
    Export& never_initialises();
    Export& unbound_answers(int code);

    // The call and its answer.
    int call(const Inputs& in, char* buffer, unsigned* length) const;
    // One that passes the argument checks, with room for everything.
    int call() const;
    bool asks_token() const;

    std::string name;
    std::function<int(const Call&)> made;
    std::string entry{};  // the first entry point asked; empty when none is
    bool has_buffer = false;
    std::function<void(const std::string&)> answer = [](const std::string&) {};
    int length_argument = -1;    // where the entry point takes the caller's length
    std::string length_entry{};  // of which entry point
    std::function<int()> refused{};
    std::function<int()> unsupported{};
    std::size_t fixed_length = 0;  // of a result that is no matter of the token library
    bool initialises = true;       // on first use
    int without_token = 0;         // when the token library cannot be bound

    friend void PrintTo(const Export& which, std::ostream* out) { *out << which.name; }
};

const std::vector<Export>& every_export();
std::vector<Export> exports_where(const std::function<bool(const Export&)>& wanted);

// For INSTANTIATE_TEST_SUITE_P.
struct ExportName {
    template <class Info>
    std::string operator()(const Info& info) const {
        return info.param.name;
    }
};

#endif
