#include "kit/certificate.h"
#include "softkey/store/pairs.h"
#include "state.h"
#include "view.h"

namespace softkey::command {
namespace {

struct Wish {
    std::string serial;
    std::string role = "signing";
    std::string form = "pem";
};

PairRecord PairWithCertificate(Store& store, const KeyRecord& key, Role role) {
    for (const PairRecord& pair : PairTable(store).Of(key.serial)) {
        if (pair.role == role && !pair.certificate.empty()) return pair;
    }
    throw Failure(kNoCertificate, Fill(_("{1} certificate on {2}"), {_(NameOf(role)), key.serial}));
}

Exit Export(Console& console, const Wish& wish) {
    const std::unique_ptr<Store> store = OpenState();
    const KeyRecord key = ChooseKey(*store, wish.serial);
    const Role role = wish.role == "signing" ? Role::kSigning : Role::kEncryption;
    const Bytes der = PairWithCertificate(*store, key, role).certificate;
    const std::string_view bytes(reinterpret_cast<const char*>(der.data()), der.size());
    TextAnswer answer{TextForm::kLine, "certificate", N_("certificate"), kit::ToBase64(bytes)};
    // In JSON the certificate is one line of Base64; a file holds the form that was asked for.
    const bool asked = !console.json || console.ToFile();
    if (asked && wish.form != "base64") answer.form = TextForm::kExact;
    if (asked && wish.form == "pem") answer.text = Armoured(answer.text, "CERTIFICATE");
    if (asked && wish.form == "der") answer.text = bytes;
    console.GiveText(answer, {{"serial", key.serial}, {"role", NameOf(role)}});
    return kExitDone;
}

}  // namespace

Action ExportCertCommand(const Options& options, Console& console) {
    const auto wish = std::make_shared<Wish>();
    AddSerial(options, wish->serial);
    options.Text("--role", wish->role, "signing|encryption",
                 N_("signing or encryption (default: signing)"));
    options.Text("--form", wish->form, "pem|der|base64", N_("pem, der or base64 (default: pem)"));
    options.Examples(
        "  softkey export-cert > signing.pem\n"
        "  softkey export-cert SK0001 --role encryption\n"
        "  softkey export-cert --form der --output signing.der");
    return Does(Export, console, wish);
}

}  // namespace softkey::command
