#include "enrolment.h"

#include "request_info.h"

namespace kesta {

namespace {

void AppendRequest(LgnString& requests, const ReturnedText& request, bool joined) {
    if (joined) requests.Append("||", 2);
    requests.Append(request.text, LGN::TextLength(request.text));
}

// The records of a batch's groups, checked as far as the text alone allows.
bool ReadRecords(const char* requestInfo, RequestRecords& records) {
    RequestParameters parameters;
    GroupReader groups(requestInfo);
    std::string_view group;
    for (int taken = 0; groups.Next(group); ++taken) {
        if (taken == RequestRecords::kMost) return false;
        if (!ParseGroup(group, parameters) || !records.Add(parameters)) return false;
    }
    return true;
}

// One request for each usable record. The PIN is verified before the first record's request and
// never without one: where the first record is skipped the key is asked without it.
int AskForRecords(const Token& token, const char* szSN, bool verify, RequestRecords& records,
                  LgnString& requests) {
    const WritableCopy serial(szSN);
    for (int slot = 0; slot < RequestRecords::kMost; ++slot) {
        KestaRequestRecord& record = records[slot];
        if (record.certType <= 0 || record.keyType <= 0) continue;
        if (slot == 0 && verify) {
            const int result = token.VerifyPIN(szSN);
            if (result != KESTA_OK) return result;
        }
        ReturnedText p10;
        const int result = token.GMCreatePKCS10Ex(serial.get(), &record, &p10.text, 1, nullptr, 0);
        if (result != KESTA_OK) return result;
        // By the slot, not by what came before: a skipped first record leaves its separator.
        AppendRequest(requests, p10, slot != 0);
    }
    return KESTA_OK;
}

}  // namespace

int MakeRequests(const Token& token, const char* szSN, const char* requestInfo,
                 LgnString& requests) {
    const WritableCopy serial(szSN);
    RequestParameters parameters;
    GroupReader groups(requestInfo);
    std::string_view group;
    for (bool joined = false; groups.Next(group); joined = true) {
        if (!ParseGroup(group, parameters)) return SetLastError(KESTA_BAD_ARGUMENT);
        int result = token.VerifyPIN(serial.get());
        if (result != KESTA_OK) return result;
        ReturnedText p10;
        result = token.GMCreatePKCS10(serial.get(), parameters.certType, parameters.keyType,
                                      parameters.hashType, &p10.text, nullptr, 0);
        if (result != KESTA_OK) return result;
        AppendRequest(requests, p10, joined);
    }
    return KESTA_OK;
}

int MakeBatchRequests(const Token& token, const char* szSN, int initFlag, const char* requestInfo,
                      LgnString& requests) {
    RequestRecords records;
    if (!ReadRecords(requestInfo, records) || static_cast<unsigned>(initFlag) > 1) {
        return SetLastError(KESTA_BAD_ARGUMENT);
    }
    const bool initialise = initFlag == 1;
    if (initialise) {
        const int result = token.CustInitCard(szSN, 1, nullptr, 0);
        if (result != KESTA_OK) return result;
    }
    return AskForRecords(token, szSN, !initialise, records, requests);
}

}  // namespace kesta
