#include <cstdio>

#include "session.h"

namespace ukey {
namespace {

// Decimal or 0x hexadecimal; the bits of a code that was printed unsigned count too.
int ParseCode(const std::string& text) {
    std::size_t used = 0;
    long long number = 0;
    try {
        number = std::stoll(text, &used, 0);
    } catch (const std::exception&) {
        used = 0;
    }
    if (used != text.size() || text.empty() || number < -2147483648LL || number > 0xFFFFFFFFLL) {
        throw UsageError(
            Fill(_("CODE is \"{1}\"; it takes a 32-bit number, as in -101 or 0x5B21"), {text}));
    }
    return static_cast<int>(static_cast<unsigned>(number));
}

// Both ways in which a code is met, in messages and in the log.
std::string BothForms(int code) {
    const std::string text = kesta::CodeText(code);
    if (text.compare(0, 2, "0x") == 0) return text + " (" + std::to_string(code) + ")";
    char hexadecimal[16];
    std::snprintf(hexadecimal, sizeof hexadecimal, "0x%08X", static_cast<unsigned>(code));
    return text + " (" + hexadecimal + ")";
}

Exit Explain(Session& session, const std::string& given) {
    const int code = ParseCode(given);
    const Exit kind = KindOfCode(code);
    const std::string status = std::to_string(static_cast<int>(kind));
    std::string message = kesta::OwnMessage(code);
    const bool own = !message.empty();
    if (!own) message = session.library().GetErrorMsg(code);
    session.GiveRows({{_("Code"), BothForms(code)},
                      {_("Text"), Printable(message)},
                      {_("From"), own ? _("this library") : _("the token library")},
                      {_("Kind"), Fill(_("{1}, exit status {2}"), {Name(kind), status})}},
                     {{"code", code},
                      {"codeText", kesta::CodeText(code)},
                      {"message", message},
                      {"from", own ? "library" : "token-library"},
                      {"kind", Name(kind)},
                      {"exitStatus", static_cast<int>(kind)}});
    return Exit::kOk;
}

}  // namespace

Action ExplainError(const Options& options, Session& session) {
    const auto code = std::make_shared<std::string>();
    options.Text("CODE", *code, "CODE", N_("Decimal, or hexadecimal with 0x")).Required();
    options.Examples(
        "  ukey error -101\n"
        "  ukey error 0x5B21        as codes stand in messages\n"
        "  ukey error 4294967195    as it may stand in a log");
    return Does(Explain, session, code);
}

}  // namespace ukey
