// Fails each call that the library makes into the runtime and the kernel once, the nth for every n,
// in scenarios that cover every export, and sees what becomes of it: no crash, a code that is
// documented for it, nothing left behind, and a next call as if nothing had been. See --help.
#include <link.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <new>
#include <set>

#include "descriptors.h"
#include "every_export.h"
#include "exports_cpp.h"
#include "failing_call.h"
#include "heap_control.h"
#include "install_directory.h"
#include "lgn_exception.h"
#include "runtime_calls.h"
#include "waiting_thread.h"

namespace {

int callsUntilFailure = 0;
std::uintptr_t libraryBegin = 0, libraryEnd = 0;
// Shared with the process that fails the calls, so that a crash has its place too.
struct Progress {
    char symbol[80];
    int nth, sites, good;
    char seen[40][80];
};
Progress* progress;

void FindLibrary() {
    dl_iterate_phdr(
        [](dl_phdr_info* info, std::size_t, void*) {
            if (std::strstr(info->dlpi_name, "libkesta_unified_zrkukey") == nullptr) return 0;
            libraryBegin = info->dlpi_addr;
            for (int i = 0; i < info->dlpi_phnum; ++i) {
                const auto& part = info->dlpi_phdr[i];
                if (part.p_type == PT_LOAD) libraryEnd = libraryBegin + part.p_vaddr + part.p_memsz;
            }
            return 1;
        },
        nullptr);
}

}  // namespace

bool MustFailCall(const char* symbol, const void* returnAddress) {
    const auto from = reinterpret_cast<std::uintptr_t>(returnAddress);
    if (callsUntilFailure == 0 || from < libraryBegin || from >= libraryEnd) return false;
    if (--callsUntilFailure != 0) return false;
    std::snprintf(progress->symbol, sizeof progress->symbol, "%s", symbol);
    return true;
}

void ThrowNoMemory() {
    throw std::bad_alloc();
}

namespace {

struct Scenario {
    std::string name;
    std::function<int()> run;
    std::set<int> codes;  // documented beside the one that a whole machine gives
};

constexpr int kThrown = 0x7E57;

int Convert() {
    CommonFunction functions;
    unsigned char text[] = "\xE4\xB8\xAD";
    unsigned char* out = nullptr;
    unsigned length = 0;
    const int code = functions.MB2MB(0, text, 3, &out, &length);
    delete[] out;
    return code;
}

int LogMuch() {
    LogEntry("tag", "%s", std::string(9000, 'x').c_str());
    LogHex("tag", std::string(9000, 'x').data(), 9000);
    return 0;
}

// Above its limit the log is removed. The file has a hole for its content.
int LogAboveTheLimit() {
    const int made = truncate(log_path, 104857601);
    LogEntry("tag", "x");
    LogEntry("tag", "y");
    return made * 0;
}

std::vector<Scenario> Scenarios() {
    std::vector<Scenario> all;
    for (const Export& one : EveryExport()) {
        const std::set<int> codes{one.withoutToken, one.name == "CheckDriverIntegrity" ? -300 : 0};
        one.answer("result");
        all.push_back({one.name, [&one] { return one.Make(); }, codes});
        // As the first call of a process: it binds.
        all.push_back({one.name + ", first",
                       [&one] {
                           if (one.name != "InitUKey") Finalize();
                           return one.Make();
                       },
                       codes});
    }
    all.push_back({"three requests",
                   [] {
                       int length = 0;
                       return Batch_InitAndGenerateCertRequest(
                           "A1", 1, "CertType(1)KeyType(2)|KeyType(1)|HashType(1)", nullptr,
                           &length);
                   },
                   {-101}});
    all.push_back(
        {"a bundle",
         [] { return Batch_ImportX509Cert("A1", "SignCert(A,)|EncPriKey(K)|EncCert(B)"); },
         {-101}});
    all.push_back({"a removal", [] { return Waited({5, 6}).code; }, {}});
    all.push_back({"a token library that is not loaded yet",
                   [] {
                       Finalize();
                       install::CloseEntirely();
                       return VerifyPIN("A1");
                   },
                   {-101}});
    all.push_back({"a token library that lacks an entry point",
                   [] {
                       TheRecorder().Hide("GetData");
                       const int code = Initialize();
                       TheRecorder().Hide("");
                       return code;
                   },
                   {-101}});
    all.push_back({"a wait with polls in vain",
                   [] {
                       TheRecorder().On("ValtoT_WaitForEvent", 1).Returns(1);
                       TheRecorder().On("ValtoT_WaitForEvent", 2).Does([](const recording::Call&) {
                           throw 1;
                       });
                       Deliver(1, 5);
                       return Waited({5}).code;
                   },
                   {}});
    all.push_back({"conversion", Convert, {-1}});
    all.push_back({"long records", LogMuch, {}});
    all.push_back({"a log above its limit", LogAboveTheLimit, {}});
    return all;
}

int Run(const Scenario& scenario) {
    try {
        return scenario.run();
    } catch (const std::bad_alloc&) {
        return kThrown;
    } catch (const LGN::CLgnException& exception) {
        return exception.code == kOutOfMemory ? kThrown : kThrown + 1;
    }
}

bool Allowed(const Scenario& scenario, Then then, int usual, int code) {
    if (code == usual) return true;
    if (then == Then::kMemory) return code == kThrown;
    return (then == Then::kUnbound || then == Then::kRefused) && scenario.codes.count(code) != 0;
}

// The nth call of the library into the runtime fails, or the nth allocation. False when there are
// fewer. What it failed stands in progress.
bool RunFailing(const Scenario& scenario, bool memory, int nth, int& code) {
    bool happened = false;
    progress->symbol[0] = '\0';
    if (memory) {
        std::snprintf(progress->symbol, sizeof progress->symbol, "malloc");
        const FailingAllocation failing(nth);
        code = Run(scenario);
        happened = failing.Happened();
    } else {
        callsUntilFailure = nth;
        code = Run(scenario);
        happened = callsUntilFailure == 0;
        callsUntilFailure = 0;
    }
    TheRecorder().Forget();
    return happened;
}

bool Good(const Scenario& scenario, bool memory, int nth, int usual, int code) {
    const auto found = kSymbols.find(progress->symbol);
    if (found == kSymbols.end() || found->second == Then::kCannot) return false;
    std::string wrong;
    if (!Allowed(scenario, found->second, usual, code)) wrong = "code " + std::to_string(code);
    if (TheRecorder().LiveRequests() != 0) wrong += " a request is left";
    if (Initialize() != 0 || Run(scenario) != usual) wrong += " the next call differs";
    const int descriptors = Descriptors();
    const auto again = [&](int rounds) {
        for (int round = 0; round < rounds; ++round) {
            int ignored = 0;
            RunFailing(scenario, memory, nth, ignored);
            Initialize();
        }
        TheRecorder().Forget();
        return HeapInUse();
    };
    const std::size_t before = again(3);
    if (again(12) >= before + 12 * 8) wrong += " memory is left";
    if (Descriptors() != descriptors) wrong += " descriptors are left";
    if (!wrong.empty()) {
        std::printf("%s, %s number %d: %s\n", scenario.name.c_str(), progress->symbol, nth,
                    wrong.c_str());
    }
    return wrong.empty();
}

// One of those that a scenario reaches.
void See(const std::string& symbol) {
    for (auto& seen : progress->seen) {
        if (seen[0] == '\0') std::snprintf(seen, sizeof seen, "%s", symbol.c_str());
        if (symbol == seen) return;
    }
}

void FailEverything(const Scenario& scenario) {
    FindLibrary();
    Initialize();
    Run(scenario);
    const int usual = Run(scenario);
    for (const bool memory : {false, true}) {
        for (progress->nth = 1;; ++progress->nth) {
            int code = 0;
            Initialize();
            if (!RunFailing(scenario, memory, progress->nth, code)) break;
            const std::string symbol = progress->symbol;
            See(symbol);
            ++progress->sites;
            progress->good += Good(scenario, memory, progress->nth, usual, code) ? 1 : 0;
        }
    }
}

// The first wait of a process, each time in a new one. Counts its own sites.
void FailFirstWait() {
    const Scenario scenario{"the first wait of a process", [] { return Waited({5}).code; }, {}};
    for (progress->nth = 1;; ++progress->nth) {
        const pid_t child = fork();
        if (child == 0) {
            FindLibrary();
            Deliver(1, 5);
            int code = 0;
            if (!RunFailing(scenario, false, progress->nth, code)) _exit(2);
            const auto then = kSymbols.at(progress->symbol);
            const bool good = Allowed(scenario, then, 0, code) || then == Then::kUnbound;
            _exit(good && Initialize() == 0 && Run(scenario) == 0 ? 0 : 1);
        }
        int status = 0;
        waitpid(child, &status, 0);
        if (WIFEXITED(status) && WEXITSTATUS(status) == 2) return;
        See(progress->symbol);
        ++progress->sites;
        progress->good += status == 0 ? 1 : 0;
        if (status != 0) {
            std::printf("%s, %s number %d: status 0x%X\n", scenario.name.c_str(), progress->symbol,
                        progress->nth, static_cast<unsigned>(status));
        }
    }
}

int FailAll() {
    std::set<std::string> missed;
    for (const auto& [symbol, then] : kSymbols) {
        if (then != Then::kCannot && then != Then::kMemory) missed.insert(symbol);
    }
    bool crashed = false;
    const std::vector<Scenario> scenarios = Scenarios();
    for (const Scenario& scenario : scenarios) {
        std::fflush(stdout);
        const pid_t child = fork();
        if (child == 0) {
            FailEverything(scenario);
            std::fflush(stdout);
            _exit(0);
        }
        int status = 0;
        waitpid(child, &status, 0);
        if (status == 0) continue;
        crashed = true;
        std::printf("%s, %s number %d: ends with status 0x%X\n", scenario.name.c_str(),
                    progress->symbol, progress->nth, static_cast<unsigned>(status));
    }
    FailFirstWait();
    for (const auto& seen : progress->seen) missed.erase(seen);
    for (const std::string& symbol : missed)
        std::printf("%s: no scenario calls it\n", symbol.c_str());
    const bool good = progress->good == progress->sites && !crashed && missed.empty();
    std::printf("faults: %d of %d calls failed without harm, in %zu scenarios\n", progress->good,
                progress->sites + static_cast<int>(missed.size()) + (crashed ? 1 : 0),
                scenarios.size());
    return good ? 0 : 1;
}

}  // namespace

int main(int count, char** words) {
    const std::string word = count > 1 ? words[1] : "";
    if (word == "--help") {
        std::puts(
            "usage: failing_calls [--symbols]\n\n  --symbols  list what is known of the runtime");
        return 0;
    }
    if (word == "--symbols") {
        for (const auto& [symbol, then] : kSymbols) std::puts(symbol.c_str());
        return 0;
    }
    progress = static_cast<Progress*>(
        mmap(nullptr, sizeof *progress, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    return FailAll();
}
