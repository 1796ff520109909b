// info, check-install, error.

#include <cstdio>

#include "certificate_text.h"
#include "commands.h"
#include "selectors.h"

namespace ukey {
namespace {

constexpr Pair kPairs[] = {{1, 2}, {3, 2}, {1, 1}, {3, 1}};

struct Installation {
    std::string libraryVersion;
    std::string driverVersion;
    std::string usbId;
    std::string vendor;
};

Installation ReadInstallation(const kesta::Library& library) {
    return {library.GetDllVersion(), library.GetDriverVersion(), library.GetVidAndPid(),
            library.GetVendorInfo(2)};
}

Json CertificateJson(const Pair& pair, const std::string& text) {
    Json entry = {{"type", CertTypeWord(pair.type)}, {"keyType", KeyTypeWord(pair.algorithm)}};
    if (const auto facts = ReadFacts(text)) entry.update(ToJson(*facts));
    return entry;
}

std::string CertificateWords(const std::string& text) {
    const auto facts = ReadFacts(text);
    return facts ? Printable(facts->subject) + "; until " + Expiry(*facts) : "cannot be read";
}

// What the key shows without a PIN. A certificate that is not there is left out.
void ReadKey(Session& session, Rows& rows, Json& object) {
    const auto& library = session.library();
    const std::string serial = session.Serial();
    rows.emplace_back("Key", Printable(serial));
    object["serial"] = serial;
    if (const auto label = library.Try().GetLabel(serial)) {
        rows.emplace_back("Label", Printable(label.value()));
        object["label"] = label.value();
    }
    object["certificates"] = Json::array();
    for (const Pair& pair : kPairs) {
        const auto text = library.Try().GetCert(serial, pair.first(), pair.second());
        if (!text) continue;
        rows.emplace_back("Certificate " + pair.Words(), CertificateWords(text.value()));
        object["certificates"].push_back(CertificateJson(pair, text.value()));
    }
    if (object["certificates"].empty()) rows.emplace_back("Certificates", "none");
}

Exit Info(Session& session) {
    const Installation installation = ReadInstallation(session.library());
    Rows rows = {{"Library", installation.libraryVersion},
                 {"Driver", installation.driverVersion},
                 {"Maker", installation.vendor},
                 {"USB id", installation.usbId}};
    Json object = {{"libraryVersion", installation.libraryVersion},
                   {"driverVersion", installation.driverVersion},
                   {"vendor", installation.vendor},
                   {"usbId", installation.usbId}};
    try {
        ReadKey(session, rows, object);
    } catch (const kesta::Error&) {
        if (!session.json) PrintRows(rows);  // what is known without a key is still worth having
        throw;
    }
    if (session.json) {
        PrintJson(Success(object));
    } else {
        PrintRows(rows);
    }
    return Exit::kOk;
}

Exit CheckInstall(Session& session) {
    const auto checked = session.library().Try().CheckDriverIntegrity(1);
    if (!checked) {
        // The code alone would say that something is not supported.
        kesta::Failure failure = checked.failure();
        if (failure.code == KESTA_UNSUPPORTED) {
            failure.message = "the install directory cannot be listed; ask `ukey doctor`";
        }
        throw kesta::Error(failure);
    }
    GiveDone(session, "the install directory can be listed; `ukey doctor` looks at the files");
    return Exit::kOk;
}

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
        throw UsageError("CODE is \"" + text +
                         "\"; it takes a 32-bit number, as in -101 or 0x5B21");
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

struct ErrorQuery {
    std::string code;
};

Exit Explain(Session& session, const ErrorQuery& query) {
    const int code = ParseCode(query.code);
    const Exit kind = KindOfCode(code);
    std::string message = kesta::OwnMessage(code);
    const bool own = !message.empty();
    if (!own) message = session.library().GetErrorMsg(code);
    if (session.json) {
        PrintJson(Success({{"code", code},
                           {"codeText", kesta::CodeText(code)},
                           {"message", message},
                           {"from", own ? "library" : "token-library"},
                           {"kind", Name(kind)},
                           {"exitStatus", static_cast<int>(kind)}}));
        return Exit::kOk;
    }
    PrintRows({{"Code", BothForms(code)},
               {"Text", Printable(message)},
               {"From", own ? "this library" : "the token library"},
               {"Kind", std::string(Name(kind)) + ", exit status " +
                            std::to_string(static_cast<int>(kind))}});
    return Exit::kOk;
}

}  // namespace

void AddInfoCommands(CLI::App& app, Session& session) {
    CLI::App* const info =
        AddCommand(app, session, "info", "Show the library, the key and its certificates",
                   "  ukey info                the key that is present\n"
                   "  ukey info --json | jq -r '.certificates[].notAfter'");
    info->callback([&session] { session.action = [&session] { return Info(session); }; });

    CLI::App* const check = AddCommand(
        app, session, "check-install", "Ask the library whether the install directory is there",
        "  ukey check-install       the library's own check: it compares no files\n"
        "  ukey doctor              looks at each file and says what is wrong",
        {true, false});
    check->callback([&session] { session.action = [&session] { return CheckInstall(session); }; });

    CLI::App* const error = AddCommand(app, session, "error", "Explain a result code",
                                       "  ukey error -101\n"
                                       "  ukey error 0x5B21        as codes stand in messages\n"
                                       "  ukey error 4294967195    as it may stand in a log",
                                       {true, false});
    auto query = std::make_shared<ErrorQuery>();
    error->add_option("CODE", query->code, "Decimal, or hexadecimal with 0x")
        ->type_name("CODE")
        ->required();
    error->callback([&session, query] {
        session.action = [&session, query] { return Explain(session, *query); };
    });
}

}  // namespace ukey
