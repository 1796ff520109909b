#include "softkey/crypto/envelope.h"

#include <openssl/crypto.h>

#include "kesta/places.h"
#include "state.h"

namespace softkey::command {
namespace {

struct Wish {
    std::string to;
    std::string pair;
    bool withHeader = false;
};

std::string Sealed(const std::string& to, std::string pair) {
    struct Wipe {
        std::string& text;
        ~Wipe() { OPENSSL_cleanse(text.data(), text.size()); }
    } const wipe{pair};
    try {
        return SealEnvelopeText(to, pair);
    } catch (const Failure& failure) {
        if (failure.code() != kBadArgument) throw;
        throw FileError(failure.detail(), 0);
    }
}

Exit Seal(Console& console, const Wish& wish) {
    if (wish.to == "-" && wish.pair == "-") {
        throw FileError(_("--to and --pair cannot both be the standard input"), 0);
    }
    const std::string to = ReadInput(wish.to);
    std::string pair = ReadInput(wish.pair);
    std::string text = Sealed(to, std::move(pair));
    if (wish.withHeader) text = std::string(kesta::places::kKeyHeader) + text;
    console.GiveText({TextForm::kLine, "envelope", N_("envelope"), text});
    return kExitDone;
}

}  // namespace

Action EnvelopeCommand(const Options& options, Console& console) {
    const auto wish = std::make_shared<Wish>();
    options
        .Text("--to", wish->to, "FILE",
              N_("A request (Base64 or PEM; of two joined by ; the second) or public key (PEM)"))
        .Required();
    options
        .Text("--pair", wish->pair, "FILE",
              N_("The pair to seal: a private key in PEM, unencrypted"))
        .Required();
    options.Flag("--with-header", wish->withHeader,
                 N_("Put the authority's 80-digit header in front"));
    options.Examples(
        "  openssl genpkey -algorithm SM2 -out pair.pem\n"
        "  softkey envelope --to request.b64 --pair pair.pem --with-header\n"
        "  softkey envelope --to temporary-public.pem --pair pair.pem --output envelope.txt");
    return Does(Seal, console, wish);
}

}  // namespace softkey::command
