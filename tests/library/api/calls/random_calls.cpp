// Random sequences of calls of all exports against a plain model of them. See --help.
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <numeric>
#include <set>
#include <sstream>

#include "every_export.h"
#include "sequence.h"

namespace {

using Indices = std::vector<std::uint64_t>;

constexpr const char* usage =
    "usage: random_calls [--seed N] [--calls N] [--only INDEX,INDEX...]\n"
    "\n"
    "Makes so many calls (10000) of the exports, drawn by the seed (1), with a token that lies, "
    "and\n"
    "compares codes, G_LastError, buffers, lengths, what the token is asked and what the log "
    "gains\n"
    "with a model. Where they disagree it says how, and which few calls show it.\n"
    "\n"
    "  --only  these calls alone, and what each of them was\n";

struct Options {
    std::uint64_t seed = 1, calls = 10000;
    Indices only;
};

// Shared with the processes that make the calls, so that a crash has its place too.
std::uint64_t* latest_call;

// Makes the calls; 0 when all agree.
int make_calls(std::uint64_t seed, const Indices& indices, bool tell_each) {
    calls::Sequence sequence(seed);
    for (const std::uint64_t index : indices) {
        *latest_call = index;
        try {
            sequence.call(index);
        } catch (const std::exception& difference) {
            std::cout << "call " << index << ", " << sequence.shown() << ":\n"
                      << difference.what() << std::endl;
            return 1;
        }
        if (tell_each) std::cout << index << ": " << sequence.shown() << std::endl;
    }
    return 0;
}

// In a process of its own, where the library is as it was loaded. True when all agree.
bool agree(std::uint64_t seed, const Indices& indices, bool quiet, bool tell_each = false) {
    std::cout.flush();
    const pid_t child = fork();
    if (child == 0) {
        if (quiet &&
            (!std::freopen("/dev/null", "w", stdout) || !std::freopen("/dev/null", "w", stderr))) {
            std::_Exit(2);
        }
        const int status = make_calls(seed, indices, tell_each);
        std::cout.flush();
        // A sequence that agrees is held to its leaks as well, where somebody looks for them.
        if (status == 0) std::exit(status);
        std::_Exit(status);
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (WIFSIGNALED(status)) {
        std::cout << "call " << *latest_call << " ends in signal " << WTERMSIG(status) << std::endl;
    }
    return status == 0;
}

// The last calls of a failing sequence that fail too, without those that do not matter.
Indices least_failing(std::uint64_t seed, std::uint64_t last) {
    Indices kept;
    for (std::uint64_t count = 1;; count *= 4) {
        kept.resize(std::min(count, last + 1));
        std::iota(kept.begin(), kept.end(), last + 1 - kept.size());
        if (kept.size() == last + 1 || !agree(seed, kept, true)) break;
    }
    for (std::size_t part = kept.size() / 2; part > 0; part /= 2) {
        for (std::size_t from = 0; from + 1 < kept.size();) {
            Indices fewer = kept;
            const std::size_t to = std::min(from + part, fewer.size() - 1);
            fewer.erase(fewer.begin() + static_cast<long>(from),
                        fewer.begin() + static_cast<long>(to));
            if (fewer.size() < kept.size() && !agree(seed, fewer, true)) {
                kept = fewer;
            } else {
                from += part;
            }
        }
    }
    return kept;
}

std::string joined(const Indices& indices) {
    std::string text;
    for (const std::uint64_t index : indices) {
        text += (text.empty() ? "" : ",") + std::to_string(index);
    }
    return text;
}

// The table of the exports is the list of what is to be called.
bool all_are_there() {
    std::set<std::string> here, there;
    for (const calls::Row& row : calls::rows()) here.insert(row.name);
    for (const Export& one : EveryExport()) there.insert(one.name);
    if (here != there) std::cout << "the model's exports are not those of every_export()\n";
    return here == there;
}

Options read_options(int count, char** words) {
    Options options;
    for (int at = 1; at < count; ++at) {
        const std::string word = words[at];
        if (word == "--help") {
            std::cout << usage;
            std::exit(0);
        }
        if (at + 1 == count) {
            std::cerr << usage;
            std::exit(2);
        }
        const char* const given = words[++at];
        if (word == "--seed") options.seed = std::strtoull(given, nullptr, 10);
        if (word == "--calls") options.calls = std::strtoull(given, nullptr, 10);
        if (word == "--only") {
            std::istringstream list(given);
            for (std::string index; std::getline(list, index, ',');) {
                options.only.push_back(std::strtoull(index.c_str(), nullptr, 10));
            }
        }
    }
    return options;
}

}  // namespace

int main(int count, char** words) {
    const Options options = read_options(count, words);
    latest_call = static_cast<std::uint64_t*>(mmap(
        nullptr, sizeof *latest_call, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    if (!all_are_there()) return 1;
    if (!options.only.empty()) return agree(options.seed, options.only, false, true) ? 0 : 1;
    Indices all(options.calls);
    std::iota(all.begin(), all.end(), std::uint64_t{0});
    if (agree(options.seed, all, false)) {
        std::cout << "calls: " << options.calls << " of " << options.calls << " agree, seed "
                  << options.seed << std::endl;
        return 0;
    }
    std::cout << "\nThe calls that show it:\n";
    const Indices least = least_failing(options.seed, *latest_call);
    agree(options.seed, least, false, true);
    std::cout << "\nrandom_calls --seed " << options.seed << " --only " << joined(least) << "\n";
    return 1;
}
