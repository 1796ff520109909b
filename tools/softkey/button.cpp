#include "softkey/store/questions.h"
#include "state.h"
#include "view.h"

namespace softkey::command {
namespace {

struct Wish {
    std::string decision;
    std::string serial;
};

// Answers what waits; for good also makes the decision stand for what is to come.
int Decide(Store& store, const std::string& serial, const std::string& decision) {
    QuestionTable questions(store);
    if (decision == "press") return questions.Decide(serial, Button::kPress);
    if (decision == "refuse") return questions.Decide(serial, Button::kRefuse);
    if (decision == "ask") return questions.Decide(serial, Button::kAsk);
    int answered = 0;  // auto
    while (const int now = questions.Decide(serial, Button::kPress)) answered += now;
    return answered;
}

Exit Push(Console& console, const Wish& wish) {
    const std::unique_ptr<Store> store = OpenState();
    const std::string serial = ChooseKey(*store, wish.serial).serial;
    const int answered = Decide(*store, serial, wish.decision);
    const std::string standing = NameOf(ChooseKey(*store, serial).button);
    const char* const sentence =
        answered == 0   ? _("every question from now on: {1}")
        : answered == 1 ? _("answered {2} waiting question; every question from now on: {1}")
                        : _("answered {2} waiting questions; every question from now on: {1}");
    console.GiveDone(Fill(sentence, {_(standing.c_str()), std::to_string(answered)}),
                     {{"serial", serial}, {"answered", answered}, {"button", standing}});
    return kExitDone;
}

}  // namespace

Action ButtonCommand(const Options& options, Console& console) {
    const auto wish = std::make_shared<Wish>();
    options
        .Text("DECISION", wish->decision, "press|refuse|ask|auto", N_("press, refuse, ask or auto"))
        .Required();
    AddSerial(options, wish->serial);
    options.Examples(
        "  softkey button ask       lets each question wait for a decision\n"
        "  softkey button press     answers what waits; when nothing waits, all that is to come\n"
        "  softkey button refuse SK0001\n"
        "  softkey button auto      presses now and from now on");
    return Does(Push, console, wish);
}

}  // namespace softkey::command
