// The subcommands about the state folder itself: check and path.
#include <sys/stat.h>

#include <cstdio>
#include <filesystem>
#include <system_error>

#include "softkey/admin/commands.h"
#include "softkey/misbehaviour/misbehaviour.h"
#include "softkey/misbehaviour/misbehaviour_plan.h"
#include "softkey/store/damage.h"
#include "softkey/store/home.h"

namespace softkey::admin {
namespace {

// Names what others than the owner may do with the folder or one of its files.
void CheckMode(const std::string& path, std::vector<std::string>& damage) {
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0 || (status.st_mode & 077U) == 0) return;
    char mode[8];
    std::snprintf(mode, sizeof mode, "%03o", status.st_mode & 0777U);
    damage.push_back(path + ": open to others than its owner, mode " + mode);
}

void CheckPlan(const std::string& home, std::vector<std::string>& damage) {
    const std::string plan = MisbehaviourPlan(home);
    if (plan.empty()) return;
    try {
        ParseMisbehaviourPlan(plan);
    } catch (const PlanError& error) {
        damage.push_back(home + "/misbehaviour.json: " + error.what());
    }
}

void Check(Session& session) {
    const std::string home = StateHome();
    std::vector<std::string> damage = FindDamage(home);
    CheckPlan(home, damage);
    CheckMode(home, damage);
    std::error_code absent;
    for (const auto& entry : std::filesystem::directory_iterator(home, absent)) {
        CheckMode(entry.path().string(), damage);
    }
    std::string text;
    for (const std::string& line : damage) text += Printable(line) + "\n";
    session.Print({{"folder", home}, {"damage", damage}},
                  damage.empty() ? home + ": no damage\n" : text);
    if (!damage.empty()) session.exitCode = kExitDamaged;
}

}  // namespace

void AddCheck(CLI::App& app, Session& session) {
    AddCommand(app, "check",
               "Look for damage in the stored state and name it; exit code 6 when there is any",
               "softkey check\n"
               "softkey check --json | jq -r '.damage[]'")
        ->callback([&session] { Check(session); });
}

void AddPath(CLI::App& app, Session& session) {
    AddCommand(app, "path", "Print the folder that holds the state",
               "softkey path\n"
               "KESTA_SOFTKEY_HOME=/tmp/keys softkey path")
        ->callback([&session] {
            const std::string home = StateHome();
            session.Print({{"path", home}}, home + "\n");
        });
}

}  // namespace softkey::admin
