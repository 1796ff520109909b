// Failed calls of the log as entries of the system's journal.
#ifndef UKEY_LOG_JOURNAL_H
#define UKEY_LOG_JOURNAL_H

#include <string>

#include "log/pairing.h"

struct iovec;

namespace ukey {

// libsystemd is looked up when it is asked for, and the command does not depend on it: most who run
// it never write to the journal, and it also runs on machines without systemd.
class Journal {
public:
    // Throws FileError where there is no libsystemd, or no journal.
    Journal();

    // message: the text of the call's code. No serial number and no key text is among the fields.
    void Send(const LogCall& call, const std::string& message) const;

private:
    int (*send_)(const iovec*, int) = nullptr;
};

}  // namespace ukey

#endif
