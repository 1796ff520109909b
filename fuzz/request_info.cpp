// The request-information text: groups, items, records.
#include "request_info.h"

#include <string>

#include "fuzz_target.h"
#include "lgn/lgn.h"
#include "oracles/request_steps.h"

namespace {

steps::Reading Read(const std::string& text) {
    steps::Reading reading;
    kesta::RequestParameters parameters;
    kesta::GroupReader groups(text);
    std::string_view group;
    while (groups.Next(group)) {
        try {
            const bool known = kesta::ParseGroup(group, parameters);
            if (!known) reading.outcome = steps::Outcome::kUnknownName;
        } catch (const LGN::CLgnException&) {
            reading.outcome = steps::Outcome::kThrown;
        }
        if (reading.outcome != steps::Outcome::kRead) break;
        reading.groups.push_back({parameters.certType, parameters.keyType, parameters.hashType});
    }
    return reading;
}

void CompareRecords(std::vector<std::array<int, 3>> groups) {
    if (groups.size() > 3) groups.resize(3);
    const auto expected = steps::RecordsFor(groups);
    kesta::RequestRecords records;
    bool accepted = true;
    for (const auto& group : groups) {
        accepted = accepted && records.Add({group[0], group[1], group[2]});
    }
    FUZZ_EXPECT(accepted == expected.has_value());
    if (!accepted) return;
    FUZZ_EXPECT(records.count() == expected->count);
    FUZZ_EXPECT(std::memcmp(&records[0], expected->bytes.data(), expected->bytes.size()) == 0);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // The export's text ends at its first NUL.
    const std::string text = std::string(reinterpret_cast<const char*>(data), size).c_str();
    const steps::Reading expected = steps::Read(text);
    const steps::Reading actual = Read(text);
    FUZZ_EXPECT(actual.outcome == expected.outcome);
    FUZZ_EXPECT(actual.groups == expected.groups);
    CompareRecords(actual.groups);
    return 0;
}
