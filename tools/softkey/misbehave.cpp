#include "softkey/misbehaviour/misbehaviour.h"
#include "softkey/store/home.h"
#include "state.h"

namespace softkey::command {
namespace {

struct Wish {
    std::string plan;
    bool clear = false;
    bool show = false;
};

Exit Set(Console& console, const std::string& path) {
    const std::string text = ReadInput(path);
    const std::string home = StateHome();
    MakeHome(home);
    try {
        SetMisbehaviour(home, text);
    } catch (const PlanError& error) {
        throw FileError((path == "-" ? _("the plan") : path) + ": " + error.what(), 0);
    }
    const auto plan = Json::Parse(text);
    const Json* const rules = plan ? plan->Find("rules") : nullptr;
    const std::size_t count = rules == nullptr ? 0 : rules->size();
    console.GiveDone(Fill(count == 1 ? _("in force: {1} rule") : _("in force: {1} rules"),
                          {std::to_string(count)}),
                     {{"rules", count}});
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
    if (!parsed) throw Failure(kStateDamaged, home + "/misbehaviour.json is not JSON");
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
        Put(table.Text("  "));
    }
    return kExitDone;
}

Exit Do(Console& console, const Wish& wish) {
    if (wish.clear) return Clear(console);
    if (wish.show) return Show(console);
    if (wish.plan.empty()) throw UsageError(_("PLAN, --show or --clear is required"));
    return Set(console, wish.plan);
}

}  // namespace

Action MisbehaveCommand(const Options& options, Console& console) {
    const auto wish = std::make_shared<Wish>();
    const Option plan =
        options.Text("PLAN", wish->plan, "FILE", N_("The plan, in JSON; - is the standard input"));
    const Option clear = options.Flag("--clear", wish->clear, N_("End the misbehaviour"));
    clear.Excludes(plan);
    options.Flag("--show", wish->show, N_("Show the plan in force and the calls counted so far"))
        .Excludes(plan)
        .Excludes(clear);
    options.Examples(
        "  softkey misbehave plan.json\n"
        "  echo '{\"rules\": [{\"entry\": \"SetData\", \"call\": 3, \"code\": \"KeyRemoved\"}]}' "
        "|\n"
        "      softkey misbehave -\n"
        "  softkey misbehave --show\n"
        "  softkey misbehave --clear");
    return Does(Do, console, wish);
}

}  // namespace softkey::command
