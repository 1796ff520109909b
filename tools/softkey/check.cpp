#include <sys/stat.h>

#include <cstdio>
#include <filesystem>
#include <system_error>

#include "softkey/misbehaviour/misbehaviour.h"
#include "softkey/misbehaviour/misbehaviour_plan.h"
#include "softkey/store/damage.h"
#include "softkey/store/home.h"
#include "state.h"

namespace softkey::command {
namespace {

// Names what others than the owner may do with the folder or one of its files.
void CheckMode(const std::string& path, std::vector<std::string>& damage) {
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0 || (status.st_mode & 077U) == 0) return;
    char mode[8];
    std::snprintf(mode, sizeof mode, "%03o", status.st_mode & 0777U);
    damage.push_back(Fill(_("{1}: open to others than its owner, mode {2}"), {path, mode}));
}

void CheckPlan(const std::string& home, std::vector<std::string>& damage) {
    const std::string plan = MisbehaviourPlan(home);
    if (plan.empty()) return;
    try {
        ParseMisbehaviourPlan(plan);
    } catch (const PlanError& error) {
        damage.push_back(Fill(_("{1}: {2}"), {home + "/misbehaviour.json", error.what()}));
    }
}

Exit Look(Console& console) {
    const std::string home = StateHome();
    std::vector<std::string> damage = FindDamage(home);
    CheckPlan(home, damage);
    CheckMode(home, damage);
    std::error_code absent;
    for (const auto& entry : std::filesystem::directory_iterator(home, absent)) {
        CheckMode(entry.path().string(), damage);
    }
    if (console.json) {
        PrintJson({{"ok", damage.empty()}, {"folder", home}, {"damage", damage}});
    } else if (damage.empty()) {
        PrintLine(Fill(_("{1}: no damage"), {Printable(home)}));
    } else {
        for (const std::string& line : damage) PrintLine(Printable(line));
    }
    return damage.empty() ? kExitDone : kExitDamaged;
}

}  // namespace

Action CheckCommand(const Options& options, Console& console) {
    options.Examples(
        "  softkey check            exit status 6 when there is damage\n"
        "  softkey check --json | jq -r '.damage[]'");
    return [&console] { return Look(console); };
}

}  // namespace softkey::command
