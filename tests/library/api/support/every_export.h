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
    int* SignedLength() const { return reinterpret_cast<int*>(length); }
};

struct Export {
    Export(std::string exportName, std::function<int(const Call&)> how)
        : name(std::move(exportName)), made(std::move(how)) {}

    // Setters; what is not said does not hold.
    Export& Asks(const char* firstEntry);
    Export& Answered(std::function<void(const std::string& result)> how);
    Export& HandsLengthOn(int argument, const char* ofEntry = "");
    Export& Refuses(std::function<int()> call);         // with -401
    Export& DoesNotSupport(std::function<int()> call);  // with -300
    Export& GivesCharacters(std::size_t count);
    Export& NeverInitialises();
    Export& UnboundAnswers(int code);

    // The call and its answer.
    int Make(const Inputs& in, char* buffer, unsigned* length) const;
    // One that passes the argument checks, with room for everything.
    int Make() const;
    bool AsksToken() const;

    std::string name;
    std::function<int(const Call&)> made;
    std::string entry{};  // the first entry point asked; empty when none is
    bool hasBuffer = false;
    std::function<void(const std::string&)> answer = [](const std::string&) {};
    int lengthArgument = -1;    // where the entry point takes the caller's length
    std::string lengthEntry{};  // of which entry point
    std::function<int()> refused{};
    std::function<int()> unsupported{};
    std::size_t fixedLength = 0;  // of a result that is no matter of the token library
    bool initialises = true;      // on first use
    int withoutToken = 0;         // when the token library cannot be bound

    friend void PrintTo(const Export& which, std::ostream* out) { *out << which.name; }
};

const std::vector<Export>& EveryExport();
std::vector<Export> ExportsWhere(const std::function<bool(const Export&)>& wanted);

// For INSTANTIATE_TEST_SUITE_P.
struct ExportName {
    template <class Info>
    std::string operator()(const Info& info) const {
        return info.param.name;
    }
};

#endif
