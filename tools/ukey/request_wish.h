// What `request` and `batch-request` have in common.
#ifndef UKEY_REQUEST_WISH_H
#define UKEY_REQUEST_WISH_H

#include <string>
#include <vector>

#include "session.h"

namespace ukey {

struct RequestWish {
    std::vector<std::string> groups;
    std::string info;
    bool pem = false;
    bool initialise = false;

    // As the library takes it. Throws UsageError.
    std::string Information() const;
};

void AddRequestOptions(const Options& options, RequestWish& wish);

void GiveRequests(const Session& session, const RequestWish& wish, const std::string& serial,
                  const std::vector<std::string>& requests);

}  // namespace ukey

#endif
