#include "ready_plans.h"
#include "softkey/misbehaviour/misbehaviour.h"
#include "softkey/store/home.h"
#include "state.h"

namespace softkey::command {
namespace {

struct Wish {
    std::string plan;
    bool list = false;
    bool clear = false;
    bool show = false;
};

Exit Set(Console& console, const std::string& path) {
    const ReadyPlan* const ready = FindReadyPlan(path);
    const std::string text = ready != nullptr ? ready->text : ReadInput(path);
    const std::string home = StateHome();
    MakeHome(home);
    try {
        SetMisbehaviour(home, text);
    } catch (const PlanError& error) {
        throw FileError(Fill(_("{1}: {2}"), {path == "-" ? _("the plan") : path, error.what()}), 0);
    }
    const auto plan = Json::Parse(text);
    const Json* const rules = plan ? plan->Find("rules") : nullptr;
    const std::size_t count = rules == nullptr ? 0 : rules->size();
    console.GiveDone(Fill(count == 1 ? _("in force: {1} rule") : _("in force: {1} rules"),
                          {std::to_string(count)}),
                     {{"rules", count}});
    return kExitDone;
}

Exit List(Console& console) {
    Json plans = Json::array();
    kit::Table table;
    for (const ReadyPlan& plan : ReadyPlans()) {
        plans.push_back(
            {{"name", plan.name}, {"teaches", _(plan.teaches)}, {"plan", *Json::Parse(plan.text)}});
        table.Row({plan.name, _(plan.teaches)});
    }
    if (console.json) {
        PrintJson(Success({{"plans", plans}}));
    } else {
        Say(table.Text());
    }
    return kExitDone;
}

Exit Clear(Console& console) {
    const bool cleared = ClearMisbehaviour(StateHome());
    console.GiveDone(cleared ? _("cleared") : _("there was no plan"), {{"cleared", cleared}});
    return kExitDone;
}

Exit Show(Console& console) {
    const std::string home = StateHome();
    const std::string plan = MisbehaviourPlan(home);
    const auto parsed = plan.empty() ? Json() : Json::Parse(plan);
    if (!parsed)
        throw Failure(kStateDamaged, Fill(_("{1} is not JSON"), {home + "/misbehaviour.json"}));
    Json calls = Json::object();
    kit::Table table;
    for (const auto& [entry, count] :
         plan.empty() ? decltype(MisbehaviourCounts(home))() : MisbehaviourCounts(home)) {
        calls[entry] = count;
        table.Row({entry, std::to_string(count)});
    }
    if (console.json) {
        PrintJson(Success({{"plan", *parsed}, {"calls", calls}}));
    } else if (plan.empty()) {
        PrintLine(_("no plan"));
    } else {
        PrintLine(Trimmed(Printable(plan, "\n\t")));
        PrintLine(calls.empty() ? _("no calls yet") : _("calls"));
        Say(table.Text("  "));
    }
    return kExitDone;
}

// For the completion. A name that is also a file's is the ready plan's; ./NAME is the file.
std::string NamesAndFile() {
    std::string form;
    for (const ReadyPlan& plan : ReadyPlans()) form += std::string(plan.name) + "|";
    return form + "FILE";
}

Exit Do(Console& console, const Wish& wish) {
    if (wish.clear) return Clear(console);
    if (wish.show) return Show(console);
    if (wish.list) return List(console);
    if (wish.plan.empty()) throw UsageError(_("PLAN, --list, --show or --clear is required"));
    return Set(console, wish.plan);
}

}  // namespace

Action MisbehaveCommand(const Options& options, Console& console) {
    const auto wish = std::make_shared<Wish>();
    static const std::string kForm = NamesAndFile();
    const Option plan = options.Text("PLAN", wish->plan, kForm.c_str(),
                                     N_("A ready plan, or a file of JSON; - is standard input"));
    const Option clear = options.Flag("--clear", wish->clear, N_("End the misbehaviour"));
    clear.Excludes(plan);
    const Option list =
        options.Flag("--list", wish->list, N_("List the ready plans and what they teach"));
    list.Excludes(plan).Excludes(clear);
    options.Flag("--show", wish->show, N_("Show the plan in force and the calls counted so far"))
        .Excludes(plan)
        .Excludes(clear)
        .Excludes(list);
    options.Examples(
        "  softkey misbehave --list\n"
        "  softkey misbehave flaky-socket\n"
        "  softkey misbehave ./plan.json\n"
        "  echo '{\"rules\": [{\"entry\": \"SetData\", \"call\": 3, \"code\": \"KeyRemoved\"}]}' "
        "|\n"
        "      softkey misbehave -\n"
        "  softkey misbehave --show\n"
        "  softkey misbehave --clear");
    return Does(Do, console, wish);
}

}  // namespace softkey::command
