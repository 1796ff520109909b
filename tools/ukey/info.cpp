#include "kit/certificate.h"
#include "selectors.h"

namespace ukey {
namespace {

constexpr Pair kPairs[] = {{1, 2}, {3, 2}, {1, 1}, {3, 1}};

// What has been found out so far, for a person and for a program.
struct Found {
    Rows rows;
    Json object = Json::object();
    std::optional<kesta::Failure> failure;  // the first that matters

    void Add(const char* name, const char* field, const std::string& value) {
        rows.emplace_back(name, Printable(value));
        object[field] = value;
    }
    void Fails(const std::string& what, const kesta::Failure& why, bool matters) {
        rows.emplace_back(what, Fill(_("cannot be read: {1} ({2})"),
                                     {Printable(why.message), kesta::CodeText(why.code)}));
        if (matters && !failure) failure = why;
    }
};

void ReadInstallation(const kesta::Library& library, Found& found) {
    found.Add(_("Library"), "libraryVersion", library.GetDllVersion());
    found.Add(_("Driver"), "driverVersion", library.GetDriverVersion());
    found.Add(_("Maker"), "vendor", library.GetVendorInfo(2));
    found.Add(_("USB id"), "usbId", library.GetVidAndPid());
}

// The code for "no such certificate" may be in no table. Where the key answers otherwise, a failure
// with such a code is shown, but is none of `info`.
bool Matters(const kesta::Failure& failure, bool answers) {
    return !answers || KindOf(failure) != Exit::kFailed || failure.kind() != kesta::Kind::kUnknown;
}

void ReadCertificates(const kesta::Library& library, const std::string& serial, Found& found) {
    const bool answers = !found.failure;
    bool any = false;
    Json certificates = Json::array();
    for (const Pair& pair : kPairs) {
        const auto text = library.Try().GetCert(serial, pair.first(), pair.second());
        if (!text && KindOf(text.failure()) == Exit::kNotFound) continue;
        any = true;
        const std::string name = Fill(_("Certificate {1}"), {pair.Words()});
        if (!text) {
            found.Fails(name, text.failure(), Matters(text.failure(), answers));
            continue;
        }
        const auto facts = ReadFacts(text.value());
        found.rows.emplace_back(
            name, facts ? Fill(_("{1}; until {2}"), {Printable(facts->subject), Expiry(*facts)})
                        : _("cannot be read"));
        Json entry = {{"type", CertTypeWord(pair.type)}, {"keyType", KeyTypeWord(pair.algorithm)}};
        if (facts) entry.update(ToJson(*facts));
        certificates.push_back(entry);
    }
    if (!any) found.rows.emplace_back(_("Certificates"), _("none"));
    found.object["certificates"] = certificates;
}

// What the key shows without a PIN. What is not there is left out; what cannot be read is told.
void ReadKey(Session& session, Found& found) {
    const auto& library = session.library();
    const std::string serial = session.Serial();
    found.Add(_("Key"), "serial", serial);
    const auto label = library.Try().GetLabel(serial);
    if (label) {
        found.Add(_("Label"), "label", label.value());
    } else if (KindOf(label.failure()) != Exit::kNotFound) {
        found.Fails(_("Label"), label.failure(), true);
    }
    ReadCertificates(library, serial, found);
}

Exit Show(Session& session) {
    Found found;
    ReadInstallation(session.library(), found);
    try {
        ReadKey(session, found);
    } catch (const kesta::Error& error) {
        found.failure = error.failure();
    }
    if (!found.failure) {
        session.GiveRows(found.rows, found.object);
        return Exit::kOk;
    }
    if (!session.json) PrintRows(found.rows);  // what is known is still worth having
    throw kesta::Error(*found.failure);
}

}  // namespace

Action Info(const Options& options, Session& session) {
    options.Examples(
        "  ukey info                the key that is present\n"
        "  ukey info --json | jq -r '.certificates[].notAfter'");
    return [&session] { return Show(session); };
}

}  // namespace ukey
