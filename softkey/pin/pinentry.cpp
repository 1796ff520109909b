#include "softkey/pin/pinentry.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <exception>

#include "softkey/pin/assuan.h"

namespace softkey {
namespace {

constexpr char kPresentVariable[] = "KESTA_SOFTKEY_PIN";
constexpr char kNewVariable[] = "KESTA_SOFTKEY_NEW_PIN";
constexpr std::size_t kLongestShownText = 96;

// The words of the question. pinentry reads UTF-8.
struct Words {
    const char* title;
    const char* key;
    const char* askPresent;
    const char* askNew;
    const char* presentPrompt;
    const char* newPrompt;
    const char* repeatPrompt;
    const char* differ;
    const char* wrong;
    const char* triesLeft;
};

constexpr Words kEnglish = {"Security key",
                            "Key",
                            "Please enter the PIN of your security key.",
                            "Please choose a new PIN of 6 to 16 characters for your security key.",
                            "PIN:",
                            "New PIN:",
                            "Repeat:",
                            "The two entries differ.",
                            "The PIN is wrong.",
                            "Tries left:"};

constexpr Words kChinese = {"UKey",
                            "UKey",
                            "请输入 UKey 的 PIN 码。",
                            "请为 UKey 设置新的 PIN 码（6 至 16 个字符）。",
                            "PIN 码：",
                            "新 PIN 码：",
                            "再次输入：",
                            "两次输入不一致。",
                            "PIN 码错误。",
                            "剩余次数："};

// A serial number or label may fill a screen; a line of the protocol holds a thousand bytes. Cuts
// in front of a UTF-8 character, never within one.
std::string Shortened(const std::string& text) {
    if (text.size() <= kLongestShownText) return text;
    std::size_t end = kLongestShownText;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
    return text.substr(0, end) + "...";
}

std::string Variable(const char* name) {
    const char* const value = std::getenv(name);
    return value != nullptr ? value : "";
}

// True when the variable decides the matter, with the outcome in code.
bool TakeFromVariable(const char* name, SecretText& pin, Code& code) {
    const char* const value = std::getenv(name);
    if (value == nullptr || *value == '\0') return false;
    code = pin.Assign(value) ? kOk : kPinLength;
    return true;
}

std::string TerminalName() {
    char name[256];
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (ttyname_r(descriptor, name, sizeof name) == 0) return name;
    }
    return {};
}

class Dialogue {
public:
    explicit Dialogue(const PinContext& context)
        : context_(context), words_(context.language == Language::kEnglish ? kEnglish : kChinese) {}

    // Starts the program and tells it where it is.
    void Open() {
        program_.Start("pinentry", {kPresentVariable, kNewVariable}, context_.protocolPatience);
        std::string locale = Variable("LC_ALL");
        if (locale.empty()) locale = Variable("LC_CTYPE");
        if (locale.empty()) locale = Variable("LANG");
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(context_.patience);
        Option("ttyname", TerminalName());
        Option("ttytype", Variable("TERM"));
        Option("lc-ctype", locale);
        Tell("SETTITLE", words_.title);
        Tell("SETTIMEOUT", std::to_string(std::max<long long>(seconds.count(), 1)));
    }

    Code AskPresent(SecretText& pin) {
        std::string description = Description(words_.askPresent);
        if (context_.triesLeft >= 0) {
            description +=
                "\n" + std::string(words_.triesLeft) + " " + std::to_string(context_.triesLeft);
        }
        Tell("SETDESC", description);
        Tell("SETPROMPT", words_.presentPrompt);
        if (context_.wrongBefore) Tell("SETERROR", words_.wrong);
        bool repeated{};
        return GetPin(pin, repeated);
    }

    Code AskNew(SecretText& pin) {
        Tell("SETDESC", Description(words_.askNew));
        Tell("SETPROMPT", words_.newPrompt);
        Tell("SETREPEAT", words_.repeatPrompt);
        Tell("SETREPEATERROR", words_.differ);
        bool repeated{};
        const Code code = GetPin(pin, repeated);
        // A program that knows nothing of repetition is asked once more.
        return code == kOk && !repeated ? AskAgain(pin) : code;
    }

private:
    std::string Description(const char* request) const {
        std::string text = request;
        if (!context_.label.empty() || !context_.serial.empty()) {
            text += "\n" + std::string(words_.key) + ": " + Shortened(context_.label) +
                    (context_.label.empty() ? "" : " ") + Shortened(context_.serial);
        }
        return text;
    }

    // A request that the program does not know is no matter; when it is gone GETPIN shows it.
    void Tell(const char* verb, const std::string& text) {
        program_.Ask(std::string(verb) + " " + AssuanEscape(text), context_.protocolPatience);
    }

    void Option(const char* name, const std::string& value) {
        if (!value.empty()) Tell("OPTION", std::string(name) + "=" + value);
    }

    Code GetPin(SecretText& pin, bool& repeated) {
        AssuanProgram::Answer answer;
        answer.data = &pin;
        if (program_.Ask("GETPIN", context_.patience, &answer) != AssuanResult::kOk)
            return kPinCancelled;
        const auto& statuses = answer.statuses;
        repeated = std::find(statuses.begin(), statuses.end(), "PIN_REPEATED") != statuses.end();
        return answer.dataTooLong ? kPinLength : kOk;
    }

    Code AskAgain(const SecretText& first) {
        SecretText second;
        bool repeated{};
        Tell("SETPROMPT", words_.repeatPrompt);
        const Code code = GetPin(second, repeated);
        if (code != kOk) return code;
        return second.View() == first.View() ? kOk : kPinMismatch;
    }

    const PinContext& context_;
    const Words& words_;
    AssuanProgram program_;
};

template <typename Ask>
Code AskThrough(const PinContext& context, SecretText& pin, Ask ask) noexcept {
    Code code = kPinCancelled;
    try {
        Dialogue dialogue(context);
        dialogue.Open();
        code = ask(dialogue);
    } catch (const std::exception&) {
        code = kNoMemory;
    }
    if (code != kOk) pin.Clear();
    return code;
}

}  // namespace

Code AskPresentPin(const PinContext& context, SecretText& pin) noexcept {
    pin.Clear();
    Code code = kOk;
    if (TakeFromVariable(kPresentVariable, pin, code)) return code;
    return AskThrough(context, pin,
                      [&pin](Dialogue& dialogue) { return dialogue.AskPresent(pin); });
}

Code AskNewPin(const PinContext& context, SecretText& pin, NewPinKind kind) noexcept {
    pin.Clear();
    Code code = kOk;
    const char* const variable = kind == NewPinKind::kFirst ? kPresentVariable : kNewVariable;
    if (TakeFromVariable(variable, pin, code)) return code;
    return AskThrough(context, pin, [&pin](Dialogue& dialogue) { return dialogue.AskNew(pin); });
}

}  // namespace softkey
