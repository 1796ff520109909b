// What doctor found as metrics for the node exporter's textfile collector.
#ifndef UKEY_DOCTOR_METRICS_H
#define UKEY_DOCTOR_METRICS_H

#include <optional>
#include <string>

#include "doctor/finding.h"
#include "log/failures.h"

namespace ukey {

// Valid both as OpenMetrics and as the older text format: gauges alone, times as seconds since
// 1970. Without withSerial nothing in it tells one key from another. No failures: the log cannot be
// read.
std::string Metrics(const Report& report, const std::optional<LogFailures>& failures,
                    bool withSerial);

}  // namespace ukey

#endif
