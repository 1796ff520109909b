// The key's screen and its button.
#include "softkey/admin/commands.h"
#include "softkey/admin/view.h"
#include "softkey/store/questions.h"
#include "softkey/store/screen.h"

namespace softkey::admin {
namespace {

struct ButtonOptions {
    std::string decision;
    std::string serial;
};

void ShowScreen(const std::string& serial, const Session& session) {
    const std::unique_ptr<Store> store = OpenState();
    const KeyRecord key = ChooseKey(*store, serial);
    const std::string text = Screen(*store).Text(key.serial);
    const std::size_t waiting = QuestionTable(*store).Waiting(key.serial).size();
    std::string shown = text.empty() ? "(the screen is empty)\n" : text + "\n";
    if (waiting != 0) shown += "(waiting for the button)\n";
    session.Print({{"serial", key.serial}, {"text", text}, {"waiting", waiting}}, shown);
}

// Answers what waits, and makes the decision stand for what is to come.
int DecideForGood(Store& store, const std::string& serial, Button decision) {
    int answered = 0;
    while (const int now = QuestionTable(store).Decide(serial, decision)) answered += now;
    return answered;
}

void Decide(const ButtonOptions& options, const Session& session) {
    const std::unique_ptr<Store> store = OpenState();
    const std::string serial = ChooseKey(*store, options.serial).serial;
    int answered = 0;
    if (options.decision == "auto") {
        answered = DecideForGood(*store, serial, Button::kPress);
    } else if (options.decision == "press") {
        answered = QuestionTable(*store).Decide(serial, Button::kPress);
    } else if (options.decision == "refuse") {
        answered = QuestionTable(*store).Decide(serial, Button::kRefuse);
    } else {
        answered = QuestionTable(*store).Decide(serial, Button::kAsk);
    }
    const std::string standing = NameOf(ChooseKey(*store, serial).button);
    const std::string text =
        (answered != 0 ? "answered " + std::to_string(answered) + " waiting question" +
                             (answered == 1 ? "" : "s") + "; "
                       : std::string()) +
        "every question from now on: " + standing + "\n";
    session.Print({{"serial", serial}, {"answered", answered}, {"button", standing}}, text);
}

}  // namespace

void AddScreen(CLI::App& app, Session& session) {
    const auto serial = std::make_shared<std::string>();
    CLI::App* const command = AddCommand(app, "screen", "Show what the key displays",
                                         "softkey screen\n"
                                         "softkey screen SK0001 --json | jq -r .text");
    AddSerial(*command, *serial);
    command->callback([serial, &session] { ShowScreen(*serial, session); });
}

void AddButton(CLI::App& app, Session& session) {
    const auto options = std::make_shared<ButtonOptions>();
    CLI::App* const command = AddCommand(
        app, "button",
        "Decide at the key's button. press and refuse answer the question that waits; when none "
        "waits they answer every question to come. ask lets each question wait for a decision. "
        "auto presses now and from now on",
        "softkey button ask\n"
        "softkey button press\n"
        "softkey button refuse SK0001\n"
        "softkey button auto");
    command->add_option("decision", options->decision, "press, refuse, ask or auto")
        ->required()
        ->type_name("DECISION")
        ->check(CLI::IsMember({"press", "refuse", "ask", "auto"}));
    AddSerial(*command, options->serial);
    command->callback([options, &session] { Decide(*options, session); });
}

}  // namespace softkey::admin
