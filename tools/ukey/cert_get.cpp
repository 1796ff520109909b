#include "kit/certificate.h"
#include "selectors.h"

namespace ukey {
namespace {

struct Wish {
    Pair pair;
    bool pem = false;
};

Exit Get(Session& session, const Wish& wish) {
    const std::string text =
        session.library().GetCert(session.Serial(), wish.pair.first(), wish.pair.second());
    TextAnswer answer{TextForm::kLine, "certificate", N_("certificate"), text};
    if (wish.pem && !session.json) {
        answer.form = TextForm::kExact;
        answer.text = Armoured(OneLine(text), "CERTIFICATE");
    }
    session.GiveText(answer);
    return Exit::kOk;
}

}  // namespace

Action CertGet(const Options& options, Session& session) {
    const auto wish = std::make_shared<Wish>();
    AddPairOptions(options, wish->pair);
    options.Flag("--pem", wish->pem, N_("Print PEM instead of one line of Base64"));
    options.Examples(
        "  ukey cert get --pem -o sign.pem\n"
        "  ukey cert get --type enc | base64 -d | openssl x509 -inform DER -noout -text");
    return Does(Get, session, wish);
}

}  // namespace ukey
