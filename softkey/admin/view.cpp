#include "softkey/admin/view.h"

#include <openssl/x509.h>

#include <ctime>

#include "softkey/admin/table.h"
#include "softkey/crypto/openssl_types.h"
#include "softkey/store/objects.h"
#include "softkey/store/pairs.h"

namespace softkey::admin {
namespace {

std::string NameText(const X509_NAME* name) {
    const BioPtr memory(BIO_new(BIO_s_mem()));
    constexpr unsigned long kFlags =
        XN_FLAG_RFC2253 & ~static_cast<unsigned long>(ASN1_STRFLGS_ESC_MSB);
    if (!memory || X509_NAME_print_ex(memory.get(), name, 0, kFlags) < 0) return {};
    char* text = nullptr;
    const long length = BIO_get_mem_data(memory.get(), &text);
    return length > 0 ? std::string(text, static_cast<std::size_t>(length)) : std::string();
}

std::string TimeText(const ASN1_TIME* time) {
    std::tm fields = {};
    char text[32];
    if (time == nullptr || ASN1_TIME_to_tm(time, &fields) != 1) return {};
    return std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &fields) != 0 ? text : "";
}

std::string NumberText(const ASN1_INTEGER* number) {
    const BignumPtr value(ASN1_INTEGER_to_BN(number, nullptr));
    char* const text = value ? BN_bn2hex(value.get()) : nullptr;
    const std::string result = text != nullptr ? text : "";
    OPENSSL_free(text);
    return result;
}

Json PairJson(const PairRecord& pair) {
    Json json = {{"id", pair.id},
                 {"role", NameOf(pair.role)},
                 {"algorithm", NameOf(pair.algorithm)},
                 {"certificate", nullptr}};
    if (pair.certificate.empty()) return json;
    const CertificateView view = ViewCertificate(pair.certificate);
    json["certificate"] = {{"readable", view.readable},    {"subject", view.subject},
                           {"issuer", view.issuer},        {"serial", view.serial},
                           {"not_before", view.notBefore}, {"not_after", view.notAfter}};
    return json;
}

void AddPairRows(const PairRecord& pair, Table& table) {
    const std::string kind = std::string(NameOf(pair.role)) + " " + NameOf(pair.algorithm);
    if (pair.certificate.empty()) {
        table.Row({kind, "no certificate"});
        return;
    }
    const CertificateView view = ViewCertificate(pair.certificate);
    if (!view.readable) {
        table.Row({kind, "a certificate that cannot be read"});
        return;
    }
    table.Row({kind, "subject", Printable(view.subject)});
    table.Row({"", "issuer", Printable(view.issuer)});
    table.Row({"", "valid", view.notBefore + " to " + view.notAfter});
}

std::string Heading(const KeyRecord& key) {
    Table table;
    table.Row({"serial", key.serial});
    table.Row({"label", Printable(key.label)});
    table.Row({"media id", key.mediaId});
    table.Row({"slot", std::to_string(key.slot) + (key.inserted ? ", inserted" : ", removed")});
    table.Row({"PIN", key.triesLeft == 0 ? "locked"
                                         : std::to_string(key.triesLeft) + " of " +
                                               std::to_string(key.maxTries) + " tries left"});
    table.Row({"button", NameOf(key.button)});
    return table.Text();
}

}  // namespace

const char* NameOf(Role role) {
    switch (role) {
        case Role::kSigning:
            return "signing";
        case Role::kEncryption:
            return "encryption";
        case Role::kTemporary:
            return "temporary";
    }
    return "unknown";
}

const char* NameOf(Algorithm algorithm) {
    switch (algorithm) {
        case Algorithm::kRsa:
            return "RSA";
        case Algorithm::kSm2:
            return "SM2";
    }
    return "unknown";
}

const char* NameOf(Button button) {
    switch (button) {
        case Button::kPress:
            return "press";
        case Button::kRefuse:
            return "refuse";
        case Button::kAsk:
            return "ask";
    }
    return "unknown";
}

CertificateView ViewCertificate(const Bytes& der) {
    CertificateView view;
    const unsigned char* bytes = der.data();
    const X509Ptr certificate(d2i_X509(nullptr, &bytes, static_cast<long>(der.size())));
    if (!certificate) return view;
    view.readable = true;
    view.subject = NameText(X509_get_subject_name(certificate.get()));
    view.issuer = NameText(X509_get_issuer_name(certificate.get()));
    view.serial = NumberText(X509_get0_serialNumber(certificate.get()));
    view.notBefore = TimeText(X509_get0_notBefore(certificate.get()));
    view.notAfter = TimeText(X509_get0_notAfter(certificate.get()));
    return view;
}

Json KeyJson(const KeyRecord& key) {
    return {{"serial", key.serial},        {"label", key.label},
            {"media_id", key.mediaId},     {"slot", key.slot},
            {"inserted", key.inserted},    {"tries_left", key.triesLeft},
            {"max_tries", key.maxTries},   {"locked", key.triesLeft == 0},
            {"button", NameOf(key.button)}};
}

Json KeyWithContentsJson(Store& store, const KeyRecord& key) {
    Json json = KeyJson(key);
    json["pairs"] = Json::array();
    for (const PairRecord& pair : PairTable(store).Of(key.serial))
        json["pairs"].push_back(PairJson(pair));
    json["data"] = Json::array();
    for (const DataObject& object : ObjectTable(store).Of(key.serial)) {
        json["data"].push_back(
            {{"name", object.name}, {"number", object.number}, {"length", object.value.size()}});
    }
    return json;
}

std::string KeyWithContentsText(Store& store, const KeyRecord& key) {
    std::string text = Heading(key);
    Table pairs;
    const auto records = PairTable(store).Of(key.serial);
    for (const PairRecord& pair : records) AddPairRows(pair, pairs);
    text += records.empty() ? "\nno key pairs\n" : "\nkey pairs, newest first\n" + pairs.Text("  ");
    Table data;
    const auto objects = ObjectTable(store).Of(key.serial);
    for (const DataObject& object : objects) {
        data.Row({Printable(object.name), "number " + std::to_string(object.number),
                  std::to_string(object.value.size()) + " bytes"});
    }
    return objects.empty() ? text : text + "\ndata objects\n" + data.Text("  ");
}

}  // namespace softkey::admin
