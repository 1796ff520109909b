#include "signing.h"

namespace ukey {
namespace {

struct Wish : SignWish {
    std::optional<std::string> warning;
};

// Nobody should press a button under an empty screen: without a warning it shows how the text
// begins and how long it is.
std::string DefaultWarning(const std::string& data) {
    constexpr std::size_t kShown = 60;
    std::size_t end = std::min(data.size(), kShown);
    while (end < data.size() && (static_cast<unsigned char>(data[end]) & 0xC0U) == 0x80U) --end;
    const std::string beginning = Printable(data.substr(0, end));
    if (end == data.size()) return Fill(_("Sign: {1}"), {beginning});
    return Fill(_("Sign {1} bytes: {2}..."), {std::to_string(data.size()), beginning});
}

Exit SignIt(Session& session, const Wish& wish) {
    const std::string data = wish.data.Read();
    if (data.empty()) throw UsageError(_("there is nothing to sign"));
    const std::string warning = wish.warning ? *wish.warning : DefaultWarning(data);
    const std::string serial = session.UnlockedSerial();
    std::string signature;
    {
        const ButtonHint hint(session, warning);
        signature = session.library().Sign(serial, wish.algorithm, wish.Hash(), data, warning);
    }
    session.GiveText({TextForm::kLine, "signature", N_("signature"), signature},
                     {{"serial", serial}});
    return Exit::kOk;
}

}  // namespace

Action Sign(const Options& options, Session& session) {
    const auto wish = std::make_shared<Wish>();
    AddAlgorithmOptions(options, wish->algorithm, wish->hashType);
    AddInput(options, wish->data, "--text", N_("Text to sign; standard input without it"),
             N_("Text to sign, given here"));
    AddWarning(options, wish->warning,
               N_("What the key shows before its button; by default how the text begins"));
    options.Examples(
        "  ukey sign order.txt --warning 'Pay 12.50 to A. Lovelace?' -o order.sig\n"
        "  printf 'pay 12.50' | ukey sign -w 'Pay 12.50?' --json");
    return Does(SignIt, session, wish);
}

}  // namespace ukey
