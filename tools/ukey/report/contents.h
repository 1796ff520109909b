// What a report tells, as it leaves the machine.
#ifndef UKEY_REPORT_CONTENTS_H
#define UKEY_REPORT_CONTENTS_H

#include <ctime>
#include <optional>

#include "doctor/finding.h"
#include "report/log_tail.h"
#include "report/versions.h"

namespace ukey {

// A recording that goes along.
struct TraceFacts {
    struct Program {
        std::string name;
        std::uint64_t process = 0;
        std::string machine;
        std::size_t calls = 0;
        std::size_t failed = 0;
    };
    std::string made;  // when
    std::vector<Program> programs;
};

struct Contents {
    std::time_t made = 0;
    bool masked = true;
    Report doctor;
    LogTail log;
    Versions versions;
    std::optional<TraceFacts> trace;
};

// Puts names in the place of what must not leave the machine; not in the log's records, which
// MaskedRecord writes out.
void MaskAll(Contents& contents, Mask& mask);

// "2026-01-31T12:00:00Z"
std::string TimeOf(std::time_t time);

// What a code means, where that is known without asking the token library.
std::string MeaningOf(int code);

Json ToJson(const Contents& contents);

}  // namespace ukey

#endif
