// What the library's own work costs: cleaning and reading texts at 1 MB and at 4 MB, and one record
// of the diagnostic log beside the bare system calls that it cannot do without.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <limits>
#include <string>

#include "commonfunction.h"
#include "import_text.h"
#include "kesta/places.h"
#include "request_info.h"

namespace {

constexpr std::size_t kMegabyte = std::size_t{1} << 20;

template <typename Work>
double Milliseconds(Work work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    const std::chrono::duration<double, std::milli> time = std::chrono::steady_clock::now() - start;
    return time.count();
}

// Measures work on a small and on a large input in turns, and reports the best of each and how
// many times the large one is as dear.
template <typename Input, typename Work>
void Compare(benchmark::State& state, const Input& small, const Input& large, Work work) {
    double bestSmall = std::numeric_limits<double>::max();
    double bestLarge = bestSmall;
    for (auto _ : state) {
        bestSmall = std::min(bestSmall, Milliseconds([&] { work(small); }));
        bestLarge = std::min(bestLarge, Milliseconds([&] { work(large); }));
    }
    state.counters["small_ms"] = bestSmall;
    state.counters["large_ms"] = bestLarge;
    state.counters["ratio"] = bestLarge / bestSmall;
}

std::string Lines(std::size_t bytes) {
    std::string text;
    while (text.size() < bytes) text += std::string(64, 'A') + "\r\n";
    return text;
}

std::string Bundle(std::size_t bytes) {
    std::string text = "EncCert(B)";
    while (text.size() < bytes) text += "|SignCert(" + Lines(2000) + ")";
    return text;
}

void RemoveLineBreaks(benchmark::State& state) {
    Compare(state, Lines(kMegabyte), Lines(4 * kMegabyte), [](const std::string& text) {
        LgnString string(text.data(), static_cast<int>(text.size()), _lgnBufferManager);
        kesta::RemoveLineBreaks(string);
        benchmark::DoNotOptimize(string.GetString());
    });
}

void WidenLineBreaks(benchmark::State& state) {
    Compare(state, Lines(kMegabyte), Lines(4 * kMegabyte), [](const std::string& text) {
        LgnString string(text.data(), static_cast<int>(text.size()), _lgnBufferManager);
        string.Replace("\r\n", "<br>");
        benchmark::DoNotOptimize(string.GetString());
    });
}

void ReadBundle(benchmark::State& state) {
    Compare(state, Bundle(kMegabyte), Bundle(4 * kMegabyte), [](const std::string& wrapped) {
        LgnString text(wrapped.c_str());
        kesta::RemoveCommas(text);
        kesta::RemoveLineBreaks(text);
        std::size_t bytes = static_cast<std::size_t>(kesta::ClassifyBundle(text.View()));
        for (const char* opener : {"SignCert(", "EncPriKey(", "EncCert("}) {
            kesta::SectionScanner sections(text.View(), opener);
            std::string_view content;
            while (sections.Next(content)) bytes += content.size();
        }
        benchmark::DoNotOptimize(bytes);
    });
}

void ReadRequestGroups(benchmark::State& state) {
    const auto text = [](std::size_t bytes) {
        std::string groups;
        while (groups.size() < bytes) groups += "CertType(1)KeyType(2)HashType(3)|";
        return groups;
    };
    Compare(state, text(kMegabyte), text(4 * kMegabyte), [](const std::string& groups) {
        kesta::RequestParameters parameters;
        kesta::GroupReader reader(groups);
        std::string_view group;
        while (reader.Next(group)) kesta::ParseGroup(group, parameters);
        benchmark::DoNotOptimize(parameters.certType);
    });
}

using kesta::places::kLogFile;

// The least that a record can cost: status, open, one write, close.
void BareRecord(std::string_view record) {
    struct stat status;
    benchmark::DoNotOptimize(stat(kLogFile, &status));
    const int file = open(kLogFile, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    benchmark::DoNotOptimize(write(file, record.data(), record.size()));
    close(file);
}

void LogRecordBesideBareCalls(benchmark::State& state) {
    constexpr int kRecords = 200;
    const std::string record(120, 'x');
    unlink(kLogFile);
    Compare(state, false, true, [&record](bool whole) {
        for (int n = 0; n < kRecords; ++n) {
            if (whole) {
                LogEntry("GenerateCertRequest", "End G_LastError: %08X", n);
            } else {
                BareRecord(record);
            }
        }
    });
    unlink(kLogFile);
    state.counters["records"] = kRecords;
}

BENCHMARK(RemoveLineBreaks)->Iterations(30)->Unit(benchmark::kMillisecond);
BENCHMARK(WidenLineBreaks)->Iterations(30)->Unit(benchmark::kMillisecond);
BENCHMARK(ReadBundle)->Iterations(30)->Unit(benchmark::kMillisecond);
BENCHMARK(ReadRequestGroups)->Iterations(30)->Unit(benchmark::kMillisecond);
BENCHMARK(LogRecordBesideBareCalls)->Iterations(300)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int count, char** arguments) {
    // Records of a benchmark have no place in a machine's log.
    if (access("/opt/.image", F_OK) != 0) {
        std::fputs("library_bench: run it in a private /tmp: the target run_library_bench does\n",
                   stderr);
        return 1;
    }
    benchmark::Initialize(&count, arguments);
    if (benchmark::ReportUnrecognizedArguments(count, arguments)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
