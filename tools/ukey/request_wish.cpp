#include "request_wish.h"

#include "kit/certificate.h"
#include "selectors.h"

namespace ukey {
namespace {

// A paired record is answered by two requests, which are joined by ";": two blocks of PEM.
std::string Pem(const std::string& answer) {
    std::string text;
    for (std::size_t start = 0; start <= answer.size();) {
        const std::size_t end = std::min(answer.find(';', start), answer.size());
        const std::string request = OneLine(answer.substr(start, end - start));
        if (!request.empty()) text += Armoured(request, "CERTIFICATE REQUEST");
        start = end + 1;
    }
    return text;
}

}  // namespace

std::string RequestWish::Information() const {
    if (!info.empty()) return info;
    if (groups.empty()) return kesta::RequestInfo({{1, 2, 3}, {3, 2, 3}});
    std::vector<kesta::RequestGroup> parsed;
    for (const std::string& group : groups) parsed.push_back(ParseGroup(group));
    return kesta::RequestInfo(parsed);
}

void AddRequestOptions(const Options& options, RequestWish& wish) {
    const Option groups =
        options.Texts("-g,--group", wish.groups, "TYPE:KEY:HASH",
                      N_("One request; repeat it. Default: sign:sm2:sm3, enc:sm2:sm3"));
    options
        .Text("--info", wish.info, "TEXT",
              N_("All requests, as in 'CertType(1)KeyType(2)HashType(3)'"))
        .Excludes(groups);
    options.Flag("--pem", wish.pem, N_("Print PEM instead of one line of Base64 for each request"));
}

void GiveRequests(const Session& session, const RequestWish& wish, const std::string& serial,
                  const std::vector<std::string>& requests) {
    std::string text;
    for (const std::string& request : requests) text += wish.pem ? Pem(request) : request + "\n";
    session.GiveLines(
        "requests", requests, text,
        requests.size() == 1 ? _("{1} request written to {2}") : _("{1} requests written to {2}"),
        {{"serial", serial}, {"requestInfo", wish.Information()}});
}

}  // namespace ukey
