// request, batch-request.
#include "certificate_text.h"
#include "commands.h"
#include "selectors.h"

namespace ukey {
namespace {

struct RequestWish {
    std::vector<std::string> groups;
    std::string info;
    bool pem = false;
    bool initialise = false;
};

std::string InformationOf(const RequestWish& wish) {
    if (!wish.info.empty()) return wish.info;
    if (wish.groups.empty()) return kesta::RequestInfo({{1, 2, 3}, {3, 2, 3}});
    std::vector<kesta::RequestGroup> groups;
    for (const std::string& group : wish.groups) groups.push_back(ParseGroup(group));
    return kesta::RequestInfo(groups);
}

void Give(const Session& session, const RequestWish& wish, const std::string& information,
          const std::string& serial, const std::vector<std::string>& requests) {
    std::string text;
    for (const std::string& request : requests) {
        text += wish.pem ? Armoured(OneLine(request), "CERTIFICATE REQUEST") : request + "\n";
    }
    GiveLines(session, "request", requests, text,
              {{"serial", serial}, {"requestInfo", information}});
}

Exit Request(Session& session, const RequestWish& wish) {
    const std::string information = InformationOf(wish);
    const std::string serial = session.Serial();
    Give(session, wish, information, serial,
         session.library().GenerateCertRequest(serial, information));
    return Exit::kOk;
}

Exit BatchRequest(Session& session, const RequestWish& wish) {
    const std::string information = InformationOf(wish);
    const std::string serial = session.Serial();
    if (wish.initialise) {
        session.Confirm("Initialise the key " + Printable(serial) +
                        " first? Its key pairs, certificates and data will be lost.");
    }
    Give(session, wish, information, serial,
         session.library().Batch_InitAndGenerateCertRequest(serial, wish.initialise, information));
    return Exit::kOk;
}

void AddRequestOptions(CLI::App& command, RequestWish& wish) {
    CLI::Option* const groups =
        command
            .add_option("-g,--group", wish.groups,
                        "One request; repeat it. Default: sign:sm2:sm3, enc:sm2:sm3")
            ->type_name("TYPE:KEY:HASH")
            ->expected(1)
            ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    command
        .add_option("--info", wish.info, "All requests, as in 'CertType(1)KeyType(2)HashType(3)'")
        ->type_name("TEXT")
        ->excludes(groups);
    command.add_flag("--pem", wish.pem, "Print PEM instead of one line of Base64 for each request");
}

}  // namespace

void AddEnrolCommands(CLI::App& app, Session& session) {
    CLI::App* const request =
        AddCommand(app, session, "request", "Make certificate requests on the key",
                   "  ukey request             one for signing, one for encryption, SM2 both\n"
                   "  ukey request -g sign:sm2:sm3 --pem -o sign.csr\n"
                   "  ukey request -g sign:rsa:sha256 --pem | openssl req -noout -verify",
                   {true, true, true});
    auto wish = std::make_shared<RequestWish>();
    AddRequestOptions(*request, *wish);
    request->callback([&session, wish] {
        session.action = [&session, wish] { return Request(session, *wish); };
    });

    CLI::App* const batch =
        AddCommand(app, session, "batch-request",
                   "Make up to three requests in one call, on an initialised key if asked to",
                   "  ukey batch-request -o request.txt\n"
                   "                           an SM2 signing pair and its encryption companion\n"
                   "                           become one request\n"
                   "  ukey batch-request --init --yes --pem",
                   {true, true, true, true});
    auto batchWish = std::make_shared<RequestWish>();
    AddRequestOptions(*batch, *batchWish);
    batch->add_flag("--init", batchWish->initialise,
                    "Initialise the key first: it loses everything it holds");
    batch->callback([&session, batchWish] {
        session.action = [&session, batchWish] { return BatchRequest(session, *batchWish); };
    });
}

}  // namespace ukey
