#include "softkey/misbehaviour/misbehaviour.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <exception>
#include <system_error>

#include "softkey/codes.h"
#include "softkey/misbehaviour/misbehaviour_plan.h"
#include "softkey/misbehaviour/state_effects.h"

namespace softkey {
namespace {

constexpr mode_t kOwnerOnly = S_IRUSR | S_IWUSR;

std::string PlanPath(const std::string& home) {
    return home + "/misbehaviour.json";
}
std::string CountsPath(const std::string& home) {
    return home + "/misbehaviour.counts";
}

[[noreturn]] void Fail(const std::string& path) {
    throw std::system_error(errno, std::generic_category(), path);
}

// An open file. Closing it gives up the lock that it holds.
class File {
public:
    File(const std::string& path, int flags)
        : path_(path), descriptor_(open(path.c_str(), flags | O_CLOEXEC, kOwnerOnly)) {}
    ~File() {
        if (descriptor_ >= 0) close(descriptor_);
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    bool IsOpen() const { return descriptor_ >= 0; }
    int Get() const { return descriptor_; }

    // Threads exclude each other too, since the lock belongs to this opening of the file.
    void Lock() const {
        while (flock(descriptor_, LOCK_EX) != 0) {
            if (errno != EINTR) Fail(path_);
        }
    }

    std::string ReadAll() const {
        std::string text;
        char piece[4096];
        for (;;) {
            const ssize_t count = read(descriptor_, piece, sizeof piece);
            if (count < 0 && errno != EINTR) Fail(path_);
            if (count == 0) return text;
            if (count > 0) text.append(piece, static_cast<std::size_t>(count));
        }
    }

    void WriteAll(const std::string& text) const {
        for (std::size_t done = 0; done < text.size();) {
            const ssize_t count = write(descriptor_, text.data() + done, text.size() - done);
            if (count < 0 && errno != EINTR) Fail(path_);
            if (count > 0) done += static_cast<std::size_t>(count);
        }
        if (fsync(descriptor_) != 0) Fail(path_);
    }

private:
    std::string path_;
    int descriptor_;
};

// The counts are 64-bit numbers in the machine's order; what the file is too short for was never
// called.
std::uint64_t ReadCount(const File& counts, std::size_t index) {
    std::uint64_t value = 0;
    const auto offset = static_cast<off_t>(index * sizeof value);
    return pread(counts.Get(), &value, sizeof value, offset) == sizeof value ? value : 0;
}

std::uint64_t CountCall(const File& counts, std::size_t index, const std::string& path) {
    const std::uint64_t value = ReadCount(counts, index) + 1;
    const auto offset = static_cast<off_t>(index * sizeof value);
    if (pwrite(counts.Get(), &value, sizeof value, offset) != sizeof value) Fail(path);
    return value;
}

// The counts of the entry points come first, then those of the rules.
Misbehaviour UnderPlan(const std::string& home, const std::string& entry,
                       const MisbehaviourPlanText::Serial& serial) {
    const std::string countsPath = CountsPath(home);
    const File counts(countsPath, O_RDWR | O_CREAT);
    if (!counts.IsOpen()) Fail(countsPath);
    counts.Lock();
    // Opened under the lock: a plan that was replaced meanwhile has its counts at zero.
    const File plan(PlanPath(home), O_RDONLY);
    const auto index = MisbehaviourEntryIndex(entry);
    if (!plan.IsOpen() || !index) return {};
    const MisbehaviourPlanText rules = ParseMisbehaviourPlan(plan.ReadAll());
    CountCall(counts, *index, countsPath);
    return rules.EffectOn(entry, serial, [&](std::size_t rule) {
        return CountCall(counts, MisbehaviourEntryPoints().size() + rule, countsPath);
    });
}

// The plan in force; none when it is damaged, which the calls tell.
MisbehaviourPlanText PlanInForce(const std::string& home) {
    try {
        const std::string text = MisbehaviourPlan(home);
        if (!text.empty()) return ParseMisbehaviourPlan(text);
    } catch (const PlanError&) {
    }
    return {};
}

}  // namespace

Misbehaviour NextMisbehaviour(const std::string& home, const char* entryPoint,
                              const std::function<std::string()>& serial) noexcept {
    try {
        if (!IsMisbehaving(home)) return {};
        return UnderPlan(home, entryPoint, serial);
    } catch (const std::exception&) {
        Misbehaviour effect;
        effect.code = kStateDamaged;
        return effect;
    }
}

bool IsMisbehaving(const std::string& home) {
    return access(PlanPath(home).c_str(), F_OK) == 0;
}

void SetMisbehaviour(const std::string& home, const std::string& planText) {
    const MisbehaviourPlanText wanted = ParseMisbehaviourPlan(planText);
    const MisbehaviourPlanText before = PlanInForce(home);
    {
        const File counts(CountsPath(home), O_RDWR | O_CREAT);
        if (!counts.IsOpen()) Fail(CountsPath(home));
        counts.Lock();
        const std::string fresh = PlanPath(home) + ".new";
        const File plan(fresh, O_WRONLY | O_CREAT | O_TRUNC);
        if (!plan.IsOpen()) Fail(fresh);
        plan.WriteAll(planText);
        if (ftruncate(counts.Get(), 0) != 0) Fail(CountsPath(home));
        if (std::rename(fresh.c_str(), PlanPath(home).c_str()) != 0) Fail(PlanPath(home));
    }
    FollowPlan(home, before, wanted);
}

bool ClearMisbehaviour(const std::string& home) {
    const MisbehaviourPlanText before = PlanInForce(home);
    if (unlink(PlanPath(home).c_str()) == 0) {
        FollowPlan(home, before, {});
        return true;
    }
    if (errno != ENOENT) Fail(PlanPath(home));
    return false;
}

std::vector<std::uint32_t> ForeignSlots(const std::string& home) {
    return IsMisbehaving(home) ? PlanInForce(home).foreign : std::vector<std::uint32_t>();
}

std::string MisbehaviourPlan(const std::string& home) {
    const File plan(PlanPath(home), O_RDONLY);
    return plan.IsOpen() ? plan.ReadAll() : std::string();
}

std::map<std::string, std::uint64_t> MisbehaviourCounts(const std::string& home) {
    std::map<std::string, std::uint64_t> result;
    const File counts(CountsPath(home), O_RDONLY);
    if (!counts.IsOpen() || !IsMisbehaving(home)) return result;
    const auto& names = MisbehaviourEntryPoints();
    for (std::size_t i = 0; i < names.size(); ++i) {
        const std::uint64_t count = ReadCount(counts, i);
        if (count != 0) result[names[i]] = count;
    }
    return result;
}

}  // namespace softkey
