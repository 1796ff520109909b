#include <errno.h>
#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "file/descriptor.h"
#include "file/reader.h"
#include "file/writer.h"
#include "kit/language.h"
#include "kit/text.h"
#include "run.h"

namespace kesta {
namespace recorder {

using kit::_;
using kit::Fill;

namespace {

[[noreturn]] void Refuse(const std::string& file, int number) {
    throw CannotRun(Fill(_("{1}: {2}"), {file, kit::SystemText(number)}));
}

bool IsRecording(const std::string& file) {
    char head[kVersionAt] = "";
    std::ifstream stream(file, std::ios::binary);
    return stream.read(head, sizeof head) && std::memcmp(head, kMagic, sizeof head) == 0;
}

void RefuseToReplaceOthers(const std::string& file) {
    struct stat status;
    if (lstat(file.c_str(), &status) != 0) return;
    if (!S_ISREG(status.st_mode) || (status.st_size != 0 && !IsRecording(file))) {
        throw CannotRun(Fill(_("{1} exists and is no recording; it is left as it is"), {file}));
    }
}

std::string NewKey() {
    std::string key(kKeySize, '\0');
    if (getrandom(key.data(), key.size(), 0) != static_cast<ssize_t>(key.size())) {
        throw CannotRun(_("there are no random bytes"));
    }
    return key;
}

std::string ToHex(const std::string& bytes) {
    constexpr const char* kDigits = "0123456789abcdef";
    std::string text;
    for (const char byte : bytes) {
        text += kDigits[static_cast<unsigned char>(byte) >> 4];
        text += kDigits[static_cast<unsigned char>(byte) & 15];
    }
    return text;
}

std::uint64_t Now(clockid_t clock) {
    timespec time;
    clock_gettime(clock, &time);
    return static_cast<std::uint64_t>(time.tv_sec) * 1000000000 +
           static_cast<std::uint64_t>(time.tv_nsec);
}

std::string Described(bool full, const std::string& version, const std::string& key) {
    Json description = {{"format", kVersion},
                        {"full", full},
                        {"ukey", version},
                        {"wall", Now(CLOCK_REALTIME)},
                        {"time", Now(CLOCK_MONOTONIC)},
                        {"functions", DescribeFunctions()}};
    if (full) description["key"] = Json::binary({key.begin(), key.end()});
    return DescriptionRecord(std::move(description));
}

bool Append(const std::string& file, const std::string& record) {
    Writer writer;
    return writer.Open(file.c_str()) &&
           writer.append(reinterpret_cast<const unsigned char*>(record.data()), record.size());
}

// A new file, never an old one's content: a process may still write to that. It takes the name when
// it is a recording, so that whoever is killed on the way leaves the old one.
int MakeRecording(const std::string& file, bool full, const std::string& version,
                  const std::string& key) {
    RefuseToReplaceOthers(file);
    // It takes much memory, and without it the program may end on the spot: nothing is left then.
    const std::string description = Described(full, version, key);
    std::string fresh = file + ".XXXXXX";
    const int made = mkostemp(fresh.data(), O_CLOEXEC);
    if (made < 0) Refuse(file, errno);
    const auto discard = [&] {
        close(made);
        unlink(fresh.c_str());
    };
    try {
        if (Writer::Create(made) && Append(fresh, description) &&
            rename(fresh.c_str(), file.c_str()) == 0) {
            return made;
        }
    } catch (...) {
        discard();
        throw;
    }
    const int reason = errno;
    discard();
    Refuse(file, reason);
}

State StateOf(int descriptor) {
    State state = {};
    if (pread(descriptor, &state, sizeof state, sizeof kMagic) !=
        static_cast<ssize_t>(sizeof state)) {
        state.lost = 1;  // whatever became of the file, it is not what was recorded
    }
    return state;
}

}  // namespace

Recorded Record(const std::string& file, bool full, const std::string& version,
                const std::vector<std::string>& command) {
    auto variables = LoaderVariables(RecorderFolder());
    const std::string key = NewKey();
    const Descriptor made(MakeRecording(file, full, version, key));
    variables[kFileVariable] = AbsolutePath(file);
    variables[kKeyVariable] = ToHex(key);
    // Set in any case: this command may run beneath another recording or a replay.
    variables[kFullVariable] = full ? "1" : "0";
    variables["KESTA_REPLAYER_FILE"] = "";
    const Ended ended = Run(command, variables);
    const State state = StateOf(made.number());
    // Whoever still writes needs the room behind the last record.
    if (ended.alone && state.used >= kHeadSize && state.used <= state.allocated &&
        ftruncate(made.number(), static_cast<off_t>(state.used)) != 0) {
        throw CannotRun(file + ": " + std::strerror(errno));
    }
    return {ended.status, state.lost, state.calls};
}

}  // namespace recorder
}  // namespace kesta
