#include "softkey/admin/commands.h"
#include "softkey/admin/table.h"
#include "softkey/misbehaviour/misbehaviour.h"
#include "softkey/store/home.h"

namespace softkey::admin {
namespace {

struct MisbehaveOptions {
    std::string plan;
    bool clear = false;
    bool show = false;
};

void Set(const std::string& path, const Session& session) {
    const std::string text = ReadInput(path);
    const std::string home = StateHome();
    MakeHome(home);
    try {
        SetMisbehaviour(home, text);
    } catch (const PlanError& error) {
        throw InputError((path == "-" ? "the plan" : path) + ": " + error.what());
    }
    const std::size_t rules = Json::parse(text)["rules"].size();
    session.Print({{"rules", rules}},
                  "in force: " + std::to_string(rules) + (rules == 1 ? " rule\n" : " rules\n"));
}

void Clear(const Session& session) {
    const bool cleared = ClearMisbehaviour(StateHome());
    session.Print({{"cleared", cleared}}, cleared ? "cleared\n" : "there was no plan\n");
}

void Show(const Session& session) {
    const std::string home = StateHome();
    const std::string plan = MisbehaviourPlan(home);
    Json json = {{"plan", nullptr}, {"calls", Json::object()}};
    if (plan.empty()) return session.Print(json, "no plan\n");
    json["plan"] = Json::parse(plan, nullptr, false);
    if (json["plan"].is_discarded()) {
        throw Failure(kStateDamaged, home + "/misbehaviour.json is not JSON");
    }
    Table calls;
    for (const auto& [entry, count] : MisbehaviourCounts(home)) {
        json["calls"][entry] = count;
        calls.Row({entry, std::to_string(count)});
    }
    const std::string counts =
        json["calls"].empty() ? "no calls yet\n" : "calls\n" + calls.Text("  ");
    session.Print(json, plan + (plan.back() == '\n' ? "" : "\n") + counts);
}

}  // namespace

void AddMisbehave(CLI::App& app, Session& session) {
    const auto options = std::make_shared<MisbehaveOptions>();
    CLI::App* const command = AddCommand(
        app, "misbehave",
        "Make entry points misbehave by a plan: codes, delays, removal in mid-operation, lengths "
        "that lie, events that bounce or repeat",
        "softkey misbehave plan.json\n"
        "echo '{\"rules\": [{\"entry\": \"GMUsbKeyCommonSign\", \"call\": 3, \"code\": "
        "\"KeyRemoved\"}]}' "
        "| softkey misbehave -\n"
        "softkey misbehave --show\n"
        "softkey misbehave --clear");
    CLI::Option* const plan =
        command->add_option("plan", options->plan, "The plan, in JSON; - is the standard input")
            ->type_name("PLAN");
    CLI::Option* const clear =
        command->add_flag("--clear", options->clear, "End the misbehaviour")->excludes(plan);
    command
        ->add_flag("--show", options->show, "Show the plan in force and the calls counted so far")
        ->excludes(plan)
        ->excludes(clear);
    command->callback([options, &session] {
        if (options->clear) return Clear(session);
        if (options->show) return Show(session);
        if (options->plan.empty()) throw CLI::RequiredError("PLAN, --show or --clear");
        Set(options->plan, session);
    });
}

}  // namespace softkey::admin
