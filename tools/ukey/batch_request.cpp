#include "request_wish.h"

namespace ukey {
namespace {

Exit Make(Session& session, const RequestWish& wish) {
    const std::string information = wish.Information();
    const std::string serial = session.Serial();
    if (wish.initialise) {
        session.Confirm(Fill(_("Initialise the key {1} first? Its key pairs, certificates and data "
                               "will be lost."),
                             {serial}));
    }
    GiveRequests(
        session, wish, serial,
        session.library().Batch_InitAndGenerateCertRequest(serial, wish.initialise, information));
    return Exit::kOk;
}

}  // namespace

Action BatchRequest(const Options& options, Session& session) {
    const auto wish = std::make_shared<RequestWish>();
    AddRequestOptions(options, *wish);
    options.Flag("--init", wish->initialise,
                 N_("Initialise the key first: it loses everything it holds"));
    options.Examples(
        "  ukey batch-request -o request.txt\n"
        "                           an SM2 signing pair and its encryption companion become one\n"
        "                           record, whose two requests stand on one line joined by ;\n"
        "  ukey batch-request --init --yes --pem");
    return Does(Make, session, wish);
}

}  // namespace ukey
