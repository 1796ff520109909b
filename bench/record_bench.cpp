// What recording adds to a call, side by side with the bare call. Runs under `ukey record`, where
// the names of the libraries lead to the recorder's stand-ins, and names of the recorder's own to
// the real ones behind them.
#include <benchmark/benchmark.h>
#include <dlfcn.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <limits>

#include "kesta/places.h"
#include "kesta/token_library.h"
#include "kesta_unified_zrkukey.h"
#include "shims/names.h"

namespace {

template <typename Entry>
Entry* LookUp(const char* library, int mode, const char* name) {
    void* const handle = dlopen(library, mode);
    return handle == nullptr ? nullptr : reinterpret_cast<Entry*>(dlsym(handle, name));
}

template <typename Work>
double NanosecondsEach(Work work) {
    constexpr int kCalls = 200;
    const auto start = std::chrono::steady_clock::now();
    for (int n = 0; n < kCalls; ++n) benchmark::DoNotOptimize(work());
    const std::chrono::duration<double, std::nano> time = std::chrono::steady_clock::now() - start;
    return time.count() / kCalls;
}

// added_ns: by the medians; undisturbed_ns: by the best of each, which a crowded machine slows
// down least.
template <typename Entry, typename Call>
void Compare(benchmark::State& state, Entry* bare, Entry* recorded, Call call) {
    std::vector<double> without, with;
    for (auto _ : state) {
        without.push_back(NanosecondsEach([&] { return call(bare); }));
        with.push_back(NanosecondsEach([&] { return call(recorded); }));
    }
    std::sort(without.begin(), without.end());
    std::sort(with.begin(), with.end());
    const std::size_t middle = with.size() / 2;
    state.counters["bare_ns"] = without[middle];
    state.counters["recorded_ns"] = with[middle];
    state.counters["added_ns"] = with[middle] - without[middle];
    state.counters["undisturbed_ns"] = with.front() - without.front();
}

template <typename Entry, typename Call>
bool Add(const char* name, const char* standIn, const char* real, const char* entry, Call call) {
    auto* const recorded = LookUp<Entry>(standIn, RTLD_NOW, entry);
    auto* const bare = LookUp<Entry>(real, RTLD_NOW | RTLD_NOLOAD, entry);
    if (recorded == nullptr || bare == nullptr || bare == recorded) return false;
    benchmark::RegisterBenchmark(name, [=](benchmark::State& state) {
        Compare(state, bare, recorded, call);
    })->Iterations(1000);
    return true;
}

bool AddAll() {
    using namespace kesta::recorder;
    unsigned length = 0;
    const bool exports =
        Add<decltype(::GetPinInfo)>(
            "export_with_a_serial_number", KESTA_UNIFIED_LIBRARY, kRealLibrary, "GetPinInfo",
            [length](auto* entry) mutable { return entry("SK0001", nullptr, &length); }) &&
        Add<decltype(::Sign)>("export_with_three_texts", KESTA_UNIFIED_LIBRARY, kRealLibrary,
                              "Sign", [length](auto* entry) mutable {
                                  return entry("SK0001", 2, 3, "pay 12.50 to the account 4711",
                                               "pay 12.50?", nullptr, &length);
                              });
    return exports && Add<kesta::token::X_ErrorConvert_UOS>(
                          "token_call_with_a_text", kesta::places::kTokenLibrary, kRealTokenLibrary,
                          "X_ErrorConvert_UOS", [](auto* entry) { return entry(0x5B01); });
}

}  // namespace

int main(int count, char** arguments) {
    benchmark::Initialize(&count, arguments);
    if (benchmark::ReportUnrecognizedArguments(count, arguments)) return 2;
    if (!AddAll()) {
        std::fputs("record_bench: run it under ukey record: the target run_record_bench does\n",
                   stderr);
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
