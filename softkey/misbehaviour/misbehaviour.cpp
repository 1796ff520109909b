#include "softkey/misbehaviour/misbehaviour.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <new>
#include <optional>

#include "softkey/misbehaviour/misbehaviour_plan.h"
#include "softkey/misbehaviour/state_effects.h"
#include "softkey/result.h"
#include "softkey/store/file.h"
#include "softkey/store/lock.h"

namespace softkey {
namespace {

std::string PlanPath(const std::string& home) {
    return home + "/misbehaviour.json";
}
std::string CountsPath(const std::string& home) {
    return home + "/misbehaviour.counts";
}

// While this lives nobody else counts or sets a plan.
Lock LockCounts(const std::string& home) {
    return Lock(home, 0, std::make_shared<File>(CountsPath(home), O_RDWR | O_CREAT));
}

// Nothing without a plan.
std::optional<std::string> ReadPlan(const std::string& home) {
    const File plan(PlanPath(home), O_RDONLY);
    if (!plan.IsOpen() && errno == ENOENT) return std::nullopt;
    const Bytes text = plan.Required().ReadAll(kLongestPlan);
    return std::string(text.begin(), text.end());
}

// The counts are 64-bit numbers in the machine's order; what the file is too short for was never
// called.
std::uint64_t ReadCount(const File& counts, std::size_t index) {
    std::uint64_t value = 0;
    const auto offset = static_cast<off_t>(index * sizeof value);
    return counts.ReadAt(offset, &value, sizeof value) == sizeof value ? value : 0;
}

std::uint64_t CountCall(const File& counts, std::size_t index) {
    const std::uint64_t value = ReadCount(counts, index) + 1;
    counts.WriteAt(static_cast<off_t>(index * sizeof value), &value, sizeof value);
    return value;
}

// The counts of the entry points come first, then those of the rules.
Misbehaviour UnderPlan(const std::string& home, const std::string& entry,
                       const MisbehaviourPlanText::Serial& serial) {
    const auto index = MisbehaviourEntryIndex(entry);
    if (!index) return {};
    const Lock lock = LockCounts(home);
    // Read under the lock: a plan that was replaced meanwhile has its counts at zero.
    const std::optional<std::string> plan = ReadPlan(home);
    if (!plan) return {};
    const MisbehaviourPlanText rules = ParseMisbehaviourPlan(*plan);
    CountCall(lock.file(), *index);
    return rules.EffectOn(entry, serial, [&](std::size_t rule) {
        return CountCall(lock.file(), MisbehaviourEntryPoints().size() + rule);
    });
}

Misbehaviour Answering(Code code) {
    Misbehaviour effect;
    effect.code = code;
    return effect;
}

// The plan in force; none when it cannot be read or is damaged, which the calls tell.
MisbehaviourPlanText PlanInForce(const std::string& home) {
    try {
        if (const auto text = ReadPlan(home)) return ParseMisbehaviourPlan(*text);
    } catch (const PlanError&) {
    } catch (const Failure&) {
    }
    return {};
}

}  // namespace

Misbehaviour NextMisbehaviour(const std::string& home, const char* entryPoint,
                              const std::function<std::string()>& serial) noexcept {
    try {
        if (!IsMisbehaving(home)) return {};
        return UnderPlan(home, entryPoint, serial);
    } catch (const Failure& failure) {
        return Answering(failure.code());
    } catch (const std::bad_alloc&) {
        return Answering(kNoMemory);
    } catch (...) {
        return Answering(kStateDamaged);
    }
}

bool IsMisbehaving(const std::string& home) {
    return access(PlanPath(home).c_str(), F_OK) == 0;
}

void SetMisbehaviour(const std::string& home, const std::string& planText) {
    const MisbehaviourPlanText wanted = ParseMisbehaviourPlan(planText);
    const MisbehaviourPlanText before = PlanInForce(home);
    {
        const Lock lock = LockCounts(home);
        const std::string fresh = PlanPath(home) + ".new";
        const File plan(fresh, O_WRONLY | O_CREAT | O_TRUNC);
        plan.Required().WriteAt(0, planText.data(), planText.size());
        plan.Sync();
        lock.file().Clear();
        if (std::rename(fresh.c_str(), PlanPath(home).c_str()) != 0) FailOnFile(PlanPath(home));
    }
    FollowPlan(home, before, wanted);
}

bool ClearMisbehaviour(const std::string& home) {
    const MisbehaviourPlanText before = PlanInForce(home);
    if (unlink(PlanPath(home).c_str()) == 0) {
        FollowPlan(home, before, {});
        return true;
    }
    if (errno != ENOENT) FailOnFile(PlanPath(home));
    return false;
}

std::vector<std::uint32_t> ForeignSlots(const std::string& home) {
    return IsMisbehaving(home) ? PlanInForce(home).foreign : std::vector<std::uint32_t>();
}

std::string MisbehaviourPlan(const std::string& home) {
    return ReadPlan(home).value_or("");
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
