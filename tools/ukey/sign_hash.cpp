#include "signing.h"

namespace ukey {
namespace {

struct Wish : SignWish {
    int writing = 0;  // 0 either, 1 hexadecimal, 2 Base64
};

Exit SignIt(Session& session, const Wish& wish) {
    const std::string hash = Trimmed(wish.data.Read());
    if (hash.empty()) throw UsageError(_("there is no hash to sign"));
    const std::string serial = session.UnlockedSerial();
    const std::string signature =
        session.library().SignHash(serial, wish.algorithm, wish.Hash(), hash, wish.writing);
    session.GiveText({TextForm::kLine, "signature", N_("signature"), signature},
                     {{"serial", serial}});
    return Exit::kOk;
}

}  // namespace

Action SignHash(const Options& options, Session& session) {
    const auto wish = std::make_shared<Wish>();
    AddAlgorithmOptions(options, wish->algorithm, wish->hashType);
    AddInput(options, wish->data, "--text", N_("Hash to sign; standard input without it"),
             N_("Hash to sign, given here"));
    options.Read(
        "--form",
        [wish](const std::string& form) {
            wish->writing = form == "hex" ? 1 : form == "base64" ? 2 : 0;
        },
        "hex|base64|either", N_("How the hash is written, by default either"));
    options.Examples(
        "  openssl dgst -sha256 -r order.txt | cut -d' ' -f1 |\n"
        "      ukey sign-hash --key-type rsa");
    return Does(SignIt, session, wish);
}

}  // namespace ukey
