// Fails each call that the software key's two libraries make into the runtime, the kernel, OpenSSL
// and SQLite, and each allocation within these, in scenarios that cover every entry point; and sees
// what becomes of it: no crash, a code that tells the truth, a state as before or after, no try of
// the PIN given back, nothing left behind, and a next call as if nothing had been. See --help.
#include <malloc.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <regex>
#include <set>

#include "descriptors.h"
#include "failing_calls.h"
#include "key_scenarios.h"

using namespace softkey;

namespace {

// What a child tells, and what is left of it when it dies.
struct Report {
    int code, reached, tries;
    char state[16384];
    char wrong[1024];
};

Report* report;
KeyBench* bench;

template <typename T>
T* Shared() {
    return static_cast<T*>(
        mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
}

// Documented codes that say what is so when the machine fails.
bool TellsTheTruth(int code) {
    return code == kNoMemory || code == kCryptoFailed || code == kStateUnreachable ||
           code == kStateFull || code == kPinCancelled;  // the last: nobody could be asked
}

void Prepare(const Scenario& scenario) {
    bench->PutTemplateInPlace();
    scenario.prepare();
    if (scenario.before == Scenario::kVerified) bench->Verify();
}

int RunWith(const Scenario& scenario, std::uint32_t target) {
    FaultsArm(target);
    int code = 0;
    try {
        code = scenario.run();
    } catch (...) {
        code = -2;  // nothing may leave an entry point
    }
    FaultsDisarm();
    return code;
}

void Tell(const std::string& what) {
    std::strncat(report->wrong, (" " + what).c_str(),
                 sizeof report->wrong - std::strlen(report->wrong) - 1);
}

// In a process of its own: the undisturbed run, which also counts the calls.
void Observe(const Scenario& scenario) {
    Prepare(scenario);
    std::snprintf(report->state, sizeof report->state / 2, "%s", bench->State().c_str());
    Prepare(scenario);  // looking may have made a state of an earlier release one of today
    report->code = RunWith(scenario, 0);
    std::snprintf(report->state + sizeof report->state / 2, sizeof report->state / 2, "%s",
                  bench->State().c_str());
    report->tries = bench->Tries();
    const std::string damage = bench->Damage();
    if (!damage.empty()) Tell("damage without a failure:" + damage);
}

struct Expected {
    int code, tries;
    std::string before, after;
};

void JudgeTries(const Scenario& scenario, int before, int code) {
    const int now = bench->Tries();
    const bool counted = now == before - 1;
    if (scenario.wrongPin ? now > before || (code == kPinWrong && !counted)
                          : now != before && !counted && now != kMaxTries) {
        Tell("tries " + std::to_string(before) + " became " + std::to_string(now));
    }
}

void JudgeState(const Scenario& scenario, const Expected& expected, int code) {
    const std::string state = bench->State();
    // Looking opens the state, which drops what could not be dropped before.
    const std::string damage = bench->Damage();
    if (!damage.empty()) Tell("damage:" + damage);
    const bool changed = state == expected.after;
    if (!changed && state != expected.before) Tell("a state between");
    if (!changed && code == expected.code) Tell("success, and nothing is stored");
    const bool again = !changed || expected.before == expected.after;
    if (!again) {
        if (!bench->Works()) Tell("the key does not work");
        return;
    }
    const int next = scenario.run();
    if (next != expected.code) Tell("the next call answers " + std::to_string(next));
}

std::size_t InUse() {
    return mallinfo2().uordblks +
           (CRYPTO_secure_malloc_initialized() != 0 ? CRYPTO_secure_used() : 0);
}

// The same failure over and over leaves nothing more behind.
void JudgeRemains(const Scenario& scenario, std::uint32_t target) {
    const auto rounds = [&](std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            Prepare(scenario);
            RunWith(scenario, target);
            ERR_clear_error();
        }
        return InUse();
    };
    std::size_t before = rounds(2);
    const int descriptors = Descriptors();
    // A heap grows now and then; what leaks grows in each stretch.
    constexpr std::size_t kRounds = 8;
    bool grows = true;
    for (int stretch = 0; grows && stretch < 4; ++stretch) {
        const std::size_t after = rounds(kRounds);
        grows = after >= before + kRounds * 8;
        before = after;
    }
    if (grows) Tell("memory is left");
    // The store may be open now and then; each round would leave one more.
    if (Descriptors() > descriptors + 2) Tell("descriptors are left");
}

void Fail(const Scenario& scenario, const Expected& expected, std::uint32_t target, bool remains) {
    Prepare(scenario);
    const int tries = bench->Tries();
    Prepare(scenario);
    const int code = RunWith(scenario, target);
    report->code = code;
    report->reached = static_cast<int>(FaultsKept()->failed);
    if (report->reached == 0) return;
    if (code != expected.code && !TellsTheTruth(code)) {
        char text[32];
        std::snprintf(text, sizeof text, "code 0x%X", static_cast<unsigned>(code));
        Tell(text);
    }
    JudgeTries(scenario, tries, code);
    JudgeState(scenario, expected, code);
    if (remains) JudgeRemains(scenario, target);
}

// What becomes of a process that does this; 0 when it ends well.
template <typename Act>
int InChild(Act act) {
    std::memset(report, 0, sizeof *report);
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        alarm(60);
        FaultsTellCrashes();
        try {
            act();
        } catch (const std::exception& error) {
            Tell(std::string("judging fails: ") + error.what());
        }
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return status;
}

// The calls of the undisturbed run that are to fail: of each place its first, and its last too.
std::vector<std::uint32_t> Chosen(unsigned every, bool all) {
    const FaultRecord& kept = *FaultsKept();
    const std::uint32_t count = std::min<std::uint32_t>(kept.calls, kFaultCalls);
    std::map<std::pair<std::uint32_t, std::uint32_t>, std::set<std::uint32_t>> places;
    for (std::uint32_t i = 0; i < count; ++i) {
        auto& of = places[{kept.log[i].slot, kept.log[i].place}];
        if (of.size() > 1) of.erase(std::prev(of.end()));
        of.insert(i + 1);
    }
    std::vector<std::uint32_t> chosen;
    unsigned nth = 0;
    for (const auto& [place, calls] : places) {
        if (nth++ % every != 0) continue;
        chosen.insert(chosen.end(), calls.begin(), all ? calls.end() : std::next(calls.begin()));
    }
    return chosen;
}

// Each call that no scenario has come to by the same calls before it: what begins alike, as the
// start of OpenSSL does, is failed once.
std::vector<std::uint32_t> AllWithNewPast() {
    static std::set<std::uint64_t> pasts;
    const FaultRecord& kept = *FaultsKept();
    std::vector<std::uint32_t> chosen;
    std::uint64_t past = 0;
    for (std::uint32_t i = 0; i < std::min<std::uint32_t>(kept.calls, kFaultCalls); ++i) {
        past = (past ^ kept.log[i].slot ^ std::uint64_t{kept.log[i].place} << 32U) *
               0x9E3779B97F4A7C15U;
        past ^= past >> 29U;
        if (pasts.insert(past).second) chosen.push_back(i + 1);
    }
    return chosen;
}

// The first call of each function in the first scenario that makes it; or, where EVERY says so,
// of each place, and each nth of all allocations.
std::vector<std::uint32_t> OfNew(unsigned every) {
    static std::set<std::pair<std::string, std::uint32_t>> failed;
    const FaultRecord& kept = *FaultsKept();
    std::vector<std::uint32_t> chosen;
    for (std::uint32_t i = 0; i < std::min<std::uint32_t>(kept.calls, kFaultCalls); ++i) {
        const std::string name = kept.names[kept.log[i].slot];
        const bool each = every != 0 && name == "malloc";
        const std::uint32_t place = every != 0 ? kept.log[i].place : 0;
        if (each ? i % every == 0 : failed.insert({name, place}).second) chosen.push_back(i + 1);
    }
    return chosen;
}

struct Options {
    unsigned every = 1, part = 0, parts = 1;
    unsigned call = 0;  // this one alone, in this process: for a debugger
    bool remains = true, verbose = false, all = false, kinds = false, once = false;
    std::string only;
};

struct Totals {
    unsigned good = 0, sites = 0, theirs = 0, calls = 0, scenarios = 0;
    std::set<std::string> symbols;
};

void FailOne(const Scenario& scenario, const Expected& expected, std::uint32_t target,
             const Options& options, Totals& totals) {
    const int status = InChild([&] { Fail(scenario, expected, target, options.remains); });
    if (status == 0 && report->reached == 0 && report->wrong[0] == '\0') return;  // not this time
    const std::string symbol = FaultsKept()->names[FaultsKept()->log[target - 1].slot];
    if (status != 0 && FaultsKept()->theirs != 0) {
        ++totals.theirs;
        return;
    }
    totals.symbols.insert(symbol);
    ++totals.sites;
    const bool good = status == 0 && report->wrong[0] == '\0';
    totals.good += good ? 1 : 0;
    if (good && !options.verbose) return;
    std::printf("%s, %s, call %u:%s", scenario.name.c_str(), symbol.c_str(), target, report->wrong);
    if (status != 0) std::printf(" ends with status 0x%X", static_cast<unsigned>(status));
    std::printf(good ? " code 0x%X\n" : "\n", static_cast<unsigned>(report->code));
}

void FailAll(const Scenario& scenario, const Options& options, Totals& totals) {
    const int status = InChild([&] { Observe(scenario); });
    if (status != 0 || report->wrong[0] != '\0') {
        std::printf("%s: undisturbed: status 0x%X%s\n", scenario.name.c_str(),
                    static_cast<unsigned>(status), report->wrong);
        ++totals.sites;
        return;
    }
    const Expected expected{report->code, report->tries, report->state,
                            report->state + sizeof report->state / 2};
    if (options.call != 0) {
        Fail(scenario, expected, options.call, options.remains);
        std::printf("code 0x%X%s\n", static_cast<unsigned>(report->code), report->wrong);
        return;
    }
    const std::vector<std::uint32_t> ends =
        Chosen(options.every * (scenario.slow ? 4 : 1), options.every == 1);
    const std::vector<std::uint32_t> chosen = options.all     ? AllWithNewPast()
                                              : options.kinds ? OfNew(0)
                                              : options.once  ? OfNew(options.every)
                                                              : ends;
    totals.calls += FaultsKept()->calls;
    if (options.verbose) {
        std::printf("%s: code 0x%X, %u calls, %zu to fail\n", scenario.name.c_str(),
                    static_cast<unsigned>(expected.code), FaultsKept()->calls, chosen.size());
    }
    const std::set<std::uint32_t> looked(ends.begin(), ends.end());
    Options with = options;
    for (const std::uint32_t target : chosen) {
        with.remains = options.remains && !scenario.slow && looked.count(target) != 0;
        FailOne(scenario, expected, target, with, totals);
    }
}

Options Read(int count, char** words) {
    Options options;
    for (int i = 1; i < count; ++i) {
        const std::string word = words[i];
        const auto number = [&] {
            return static_cast<unsigned>(std::strtoul(words[++i], nullptr, 10));
        };
        if (word == "--every" && i + 1 < count) options.every = number();
        if (word == "--part" && i + 1 < count) options.part = number();
        if (word == "--parts" && i + 1 < count) options.parts = number();
        if (word == "--call" && i + 1 < count) options.call = number();
        if (word == "--only" && i + 1 < count) options.only = words[++i];
        if (word == "--all") options.all = true;
        if (word == "--kinds") options.kinds = true;
        if (word == "--once") options.once = true;
        if (word == "--verbose") options.verbose = true;
        if (word == "--no-leaks") options.remains = false;
    }
    return options;
}

// A function that nobody has said of how it fails is a fault of failures.def.
unsigned Unknown() {
    unsigned count = 0;
    for (std::uint32_t i = 0; i < FaultsKept()->slots; ++i) {
        if (FaultsKept()->canFail[i] != 2) continue;
        std::printf("%s: how it fails is not said in failures.def\n", FaultsKept()->names[i]);
        ++count;
    }
    return count;
}

void Watch() {
    FaultsKeepIn(Shared<FaultRecord>());
    for (const char* const file : {"libKestaZRK.so", "libR7Token_KESTA.so"}) {
        if (!FaultsWatch(file, kFaultAll)) std::abort();
    }
    for (const char* const file : {"libstdc++.so.6", "libcrypto.so.3", "libsqlite3.so.0"}) {
        if (!FaultsWatch(file, kFaultMemory)) std::abort();
    }
}

// The runtime's own stock of small blocks counts as memory in use.
void BeginWithoutStock(char** words) {
    constexpr const char* kVariable = "GLIBC_TUNABLES";
    constexpr const char* kNone = "glibc.malloc.tcache_count=0";
    const char* const now = std::getenv(kVariable);
    if (now != nullptr && std::string(now) == kNone) return;
    setenv(kVariable, kNone, 1);
    execv("/proc/self/exe", words);
}

}  // namespace

int main(int count, char** words) {
    BeginWithoutStock(words);
    mallopt(M_MXFAST, 0);
    testing::InitGoogleTest(&count, words);
    if (count > 1 && std::strcmp(words[1], "--help") == 0) {
        std::puts(
            "usage: failing_key [--every N [--once] | --kinds | --all] [--part I --parts K]\n"
            "                   [--only PATTERN] [--call N] [--no-leaks] [--verbose]\n\n"
            "Fails the first and the last call of each place; with --every the first of each Nth,\n"
            "with --kinds the first of each function, with --all each call; with --once the first\n"
            "of each place in one scenario, and each Nth allocation.");
        return 0;
    }
    const Options options = Read(count, words);
    setenv("KESTA_SOFTKEY_PIN_COST", "1024", 0);  // what a PIN costs is not what fails here
    report = Shared<Report>();
    KeyBench own;
    bench = &own;
    if (InChild([] { bench->MakeTemplate(); }) != 0 || report->wrong[0] != '\0') {
        std::fprintf(stderr, "the key cannot be made:%s\n", report->wrong);
        return 2;
    }
    own.ReadTexts();
    Watch();
    Totals totals;
    const std::regex only(options.only);
    unsigned nth = 0;
    for (const Scenario& scenario : own.Scenarios()) {
        if (!std::regex_search(scenario.name, only)) continue;
        if (nth++ % options.parts != options.part) continue;
        ++totals.scenarios;
        FailAll(scenario, options, totals);
    }
    const unsigned unknown = options.part == 0 ? Unknown() : 0;
    for (const std::string& symbol : totals.symbols) std::printf("failed: %s\n", symbol.c_str());
    std::printf(
        "faults: %u of %u calls failed without harm, in %u scenarios of %u calls; %u ended inside "
        "OpenSSL\n",
        totals.good, totals.sites + unknown, totals.scenarios, totals.calls, totals.theirs);
    return totals.good == totals.sites && unknown == 0 && totals.sites > 0 ? 0 : 1;
}
