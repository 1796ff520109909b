#include "softkey/token/button.h"

#include <algorithm>
#include <cstdlib>
#include <thread>

#include "softkey/store/questions.h"
#include "softkey/store/screen.h"
#include "softkey/token/fork_gate.h"

namespace softkey {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kPoll{20};

milliseconds Patience() {
    constexpr long kDefault = 30000, kLongest = 24 * 3600 * 1000;
    const char* const text = std::getenv("KESTA_SOFTKEY_BUTTON_MS");
    const long given = text != nullptr ? std::strtol(text, nullptr, 10) : 0;
    return milliseconds(given > 0 ? std::min(given, kLongest) : kDefault);
}

void Obey(Button decision) {
    if (decision == Button::kRefuse) throw Failure(kButtonRefused);
}

// A question that others can see and answer, for as long as this lives.
class OpenQuestion {
public:
    OpenQuestion(const KeyRecord& key, milliseconds patience) {
        Change change(key);
        id_ = QuestionTable(change.store()).Open(key.serial, patience);
        change.Commit();
    }
    ~OpenQuestion() {
        try {
            QuestionTable(LockedDevice().store()).Close(id_);
        } catch (...) {
            // It ends by itself at its deadline.
        }
    }
    OpenQuestion(const OpenQuestion&) = delete;
    OpenQuestion& operator=(const OpenQuestion&) = delete;

    std::optional<Button> Answer(const KeyRecord& key) const {
        LockedDevice device(LockedDevice::Look::kFresh);
        device.RequireStillThere(key);
        return QuestionTable(device.store()).Answer(id_);
    }

private:
    std::int64_t id_ = 0;
};

void Wait(const KeyRecord& key) {
    const milliseconds patience = Patience();
    const auto deadline = std::chrono::steady_clock::now() + patience;
    const OpenQuestion question(key, patience);
    while (std::chrono::steady_clock::now() < deadline) {
        if (const std::optional<Button> answer = question.Answer(key)) return Obey(*answer);
        const Pausing pausing;
        std::this_thread::sleep_for(kPoll);
    }
    throw Failure(kButtonTimeout);
}

}  // namespace

void SetWarning(const KeyRecord& key, const std::string& text) {
    if (text.size() > kMaxWarningLength) throw Failure(kTooLong);
    LockedDevice().UseOf(key).warning = text;
}

void ConfirmWarningAtButton(const KeyRecord& key) {
    std::string text;
    {
        LockedDevice device;
        text = std::exchange(device.UseOf(key).warning, {});
    }
    ConfirmAtButton(key, text);
}

void ConfirmAtButton(const KeyRecord& key, const std::string& text) {
    Button decision;
    {
        LockedDevice device;
        decision = device.RequireStillThere(key).button;
        Screen(device.store()).Show(key.serial, text);
    }
    if (decision == Button::kAsk) return Wait(key);
    Obey(decision);
}

}  // namespace softkey
