// Which functions of the library write to the log, and under which tags.
#ifndef UKEY_LOG_WRITERS_H
#define UKEY_LOG_WRITERS_H

#include <string>
#include <string_view>

namespace ukey {

// Where a tag belongs to.
struct LogWriter {
    std::string_view operation;  // empty: the call in progress
    bool alone = false;          // its only record: the call has no beginning and no end
};
LogWriter WriterOf(std::string_view tag);

// The function that is meant by a name in any case, or by a tag; the text itself where there is no
// such function. Throws UsageError for a function that never writes to the log.
std::string LoggedFunction(const std::string& name);

// True for the exact name of a function that writes to the log.
bool IsLogged(const std::string& name);

// All of them, for a person: "GetDllVersion, GetVidAndPid, ...".
std::string LoggedFunctions();

}  // namespace ukey

#endif
