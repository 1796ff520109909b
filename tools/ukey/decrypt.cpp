#include "input.h"
#include "selectors.h"

namespace ukey {
namespace {

struct Wish {
    Pair pair{3, 2};
    std::string file;
};

Exit DecryptIt(Session& session, const Wish& wish) {
    const std::string cipher = ReadSomething(wish.file);
    if (Trimmed(cipher).empty()) throw UsageError(_("there is nothing to decrypt"));
    const std::string serial = session.UnlockedSerial();
    const std::string plain =
        session.library().AsymDec(serial, wish.pair.type, wish.pair.second(), cipher);
    session.GiveText({TextForm::kExact, "plain", N_("plain text"), plain}, {{"serial", serial}});
    return Exit::kOk;
}

}  // namespace

Action Decrypt(const Options& options, Session& session) {
    const auto wish = std::make_shared<Wish>();
    options.Text("FILE", wish->file, "FILE",
                 N_("Cipher text in Base64; standard input without it"));
    AddPairOptions(options, wish->pair);
    options.Examples(
        "  ukey decrypt cipher.txt -o letter.txt\n"
        "  openssl pkeyutl -encrypt -certin -inkey enc.cer -in letter.txt | base64 | ukey decrypt");
    return Does(DecryptIt, session, wish);
}

}  // namespace ukey
