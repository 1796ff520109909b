// How often calls of the log have failed.
#ifndef UKEY_LOG_FAILURES_H
#define UKEY_LOG_FAILURES_H

#include <map>
#include <string>
#include <utility>

#include "log/pairing.h"

namespace ukey {

// By function and code. Functions that the library does not have, and what goes beyond the first
// thousand pairs, are "other" with code 0.
using LogFailures = std::map<std::pair<std::string, int>, std::size_t>;

// Every call that failed, in the order in which they ended. Throws FileError.
void ReadFailures(const std::string& path, const LogPairing::Notice& failed);

LogFailures CountFailures(const std::string& path);

}  // namespace ukey

#endif
