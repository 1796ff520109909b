#include "softkey/token/button.h"

#include <cstdlib>
#include <thread>

namespace softkey {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kPoll{20};

milliseconds Patience() {
    constexpr long kDefault = 30000;
    const char* const text = std::getenv("KESTA_SOFTKEY_BUTTON_MS");
    const long given = text != nullptr ? std::strtol(text, nullptr, 10) : 0;
    return milliseconds(given > 0 ? given : kDefault);
}

void Obey(Button decision, const KeyRecord& key) {
    if (decision == Button::kRefuse) throw Failure(kButtonRefused, key.serial);
}

// A question that others can see and answer, for as long as this lives.
class OpenQuestion {
public:
    OpenQuestion(const KeyRecord& key, milliseconds patience) {
        Change change(key);
        id_ = change.store().OpenPrompt(key.serial, patience);
        change.Commit();
    }
    ~OpenQuestion() {
        try {
            Section().store().ClosePrompt(id_);
        } catch (...) {
            // It ends by itself at its deadline.
        }
    }
    OpenQuestion(const OpenQuestion&) = delete;
    OpenQuestion& operator=(const OpenQuestion&) = delete;

    std::optional<Button> Answer(const KeyRecord& key) const {
        Section section;
        section.Confirm(key);
        return section.store().PromptAnswer(id_);
    }

private:
    std::int64_t id_ = 0;
};

void Wait(const KeyRecord& key) {
    const milliseconds patience = Patience();
    const auto deadline = std::chrono::steady_clock::now() + patience;
    const OpenQuestion question(key, patience);
    while (std::chrono::steady_clock::now() < deadline) {
        if (const std::optional<Button> answer = question.Answer(key)) return Obey(*answer, key);
        std::this_thread::sleep_for(kPoll);
    }
    throw Failure(kButtonTimeout, key.serial);
}

}  // namespace

void SetWarning(const char* serial, const std::string& text) {
    if (text.size() > kMaxWarningLength) throw Failure(kTooLong, "the warning");
    Section section;
    section.SessionOf(section.Resolve(serial)).warning = text;
}

void ConfirmWarning(const KeyRecord& key) {
    std::string text;
    {
        Section section(Section::Look::kAsBefore);
        text = std::exchange(section.SessionOf(key).warning, {});
    }
    Confirm(key, text);
}

void Confirm(const KeyRecord& key, const std::string& text) {
    Button decision;
    {
        Section section(Section::Look::kAsBefore);
        section.Confirm(key);
        section.store().ShowOnScreen(key.serial, text);
        decision = section.Resolve(key.serial.c_str()).button;
    }
    if (decision == Button::kAsk) return Wait(key);
    Obey(decision, key);
}

}  // namespace softkey
