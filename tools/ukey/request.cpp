#include "request_wish.h"

namespace ukey {
namespace {

Exit Make(Session& session, const RequestWish& wish) {
    const std::string information = wish.Information();
    const std::string serial = session.Serial();
    GiveRequests(session, wish, serial, session.library().GenerateCertRequest(serial, information));
    return Exit::kOk;
}

}  // namespace

Action Request(const Options& options, Session& session) {
    const auto wish = std::make_shared<RequestWish>();
    AddRequestOptions(options, *wish);
    options.Examples(
        "  ukey request             one for signing, one for encryption, SM2 both\n"
        "  ukey request -g sign:sm2:sm3 --pem -o sign.csr\n"
        "  ukey request -g sign:rsa:sha256 --pem | openssl req -noout -verify");
    return Does(Make, session, wish);
}

}  // namespace ukey
