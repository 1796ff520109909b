// Writes so many records to the diagnostic log and does nothing else: what a record costs is told
// by tracing this program. usage: log_records LogEntry|LogHex COUNT
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "commonfunction.h"

int main(int count, char** arguments) {
    if (count != 3) {
        std::fputs("usage: log_records LogEntry|LogHex COUNT\n", stderr);
        return 2;
    }
    const bool hexadecimal = std::strcmp(arguments[1], "LogHex") == 0;
    for (int n = std::atoi(arguments[2]); n > 0; --n) {
        if (hexadecimal) {
            LogHex("RecordCost", "0123456789", 10);
        } else {
            LogEntry("RecordCost", "End G_LastError: %08X", 0);
        }
    }
    return 0;
}
