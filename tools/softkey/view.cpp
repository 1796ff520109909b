#include "view.h"

#include <optional>

#include "kit/certificate.h"
#include "kit/output.h"
#include "softkey/store/objects.h"
#include "softkey/store/pairs.h"

namespace softkey::command {

using namespace kit;

namespace {

std::optional<CertificateFacts> FactsOf(const Bytes& der) {
    return ReadDer({reinterpret_cast<const char*>(der.data()), der.size()});
}

// Null where there is no certificate; an object without members where it cannot be read.
Json PairJson(const PairRecord& pair) {
    Json json = {{"id", pair.id},
                 {"role", NameOf(pair.role)},
                 {"algorithm", NameOf(pair.algorithm)},
                 {"certificate", nullptr}};
    if (pair.certificate.empty()) return json;
    const auto facts = FactsOf(pair.certificate);
    json["certificate"] = facts ? ToJson(*facts) : Json::object();
    json["certificate"]["readable"] = facts.has_value();
    return json;
}

void AddPairRows(const PairRecord& pair, kit::Table& table) {
    const std::string kind = std::string(_(NameOf(pair.role))) + " " + NameOf(pair.algorithm);
    const auto facts = FactsOf(pair.certificate);
    if (!facts) {
        table.Row({kind, pair.certificate.empty() ? _("no certificate")
                                                  : _("a certificate that cannot be read")});
        return;
    }
    table.Row({kind, _("subject"), Printable(facts->subject)});
    table.Row({"", _("issuer"), Printable(facts->issuer)});
    table.Row({"", _("valid"), Fill(_("{1} to {2}"), {facts->notBefore, facts->notAfter})});
}

std::string Heading(const KeyRecord& key) {
    kit::Table table;
    table.Row({_("serial"), key.serial});
    table.Row({_("label"), Printable(key.label)});
    table.Row({_("media id"), key.mediaId});
    table.Row({_("slot"), Fill(key.inserted ? _("{1}, inserted") : _("{1}, removed"),
                               {std::to_string(key.slot)})});
    table.Row({_("PIN"), key.triesLeft == 0
                             ? _("locked")
                             : Fill(_("{1} of {2} tries left"), {std::to_string(key.triesLeft),
                                                                 std::to_string(key.maxTries)})});
    table.Row({_("button"), _(NameOf(key.button))});
    return table.Text();
}

}  // namespace

// The state holds no other numbers than those of the enumerators.
const char* NameOf(Role role) {
    return role == Role::kSigning      ? N_("signing")
           : role == Role::kEncryption ? N_("encryption")
                                       : N_("temporary");
}

const char* NameOf(Algorithm algorithm) {
    return algorithm == Algorithm::kRsa ? "RSA" : "SM2";
}

const char* NameOf(Button button) {
    return button == Button::kPress    ? N_("press")
           : button == Button::kRefuse ? N_("refuse")
                                       : N_("ask");
}

Json KeyJson(const KeyRecord& key) {
    return {
        {"serial", key.serial},     {"label", key.label},           {"mediaId", key.mediaId},
        {"slot", key.slot},         {"inserted", key.inserted},     {"triesLeft", key.triesLeft},
        {"maxTries", key.maxTries}, {"locked", key.triesLeft == 0}, {"button", NameOf(key.button)}};
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
    kit::Table pairs;
    const auto records = PairTable(store).Of(key.serial);
    for (const PairRecord& pair : records) AddPairRows(pair, pairs);
    text += records.empty()
                ? std::string("\n") + _("no key pairs") + "\n"
                : std::string("\n") + _("key pairs, newest first") + "\n" + pairs.Text("  ");
    kit::Table data;
    const auto objects = ObjectTable(store).Of(key.serial);
    for (const DataObject& object : objects) {
        data.Row({Printable(object.name), Fill(_("number {1}"), {std::to_string(object.number)}),
                  Fill(_("{1} bytes"), {std::to_string(object.value.size())})});
    }
    return objects.empty() ? text : text + "\n" + _("data objects") + "\n" + data.Text("  ");
}

}  // namespace softkey::command
