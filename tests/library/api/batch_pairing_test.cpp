// Batch_InitAndGenerateCertRequest over every certType and keyType from 0 to 4 in one to three
// groups, against an oracle that follows the rule in words.
#include <optional>

#include "api_test.h"

namespace {

struct Group {
    int cert, key, hash;
};

struct Record {
    long long cert = 0, key = 0, hash = 0;
    bool paired = false;
};

// The records that the groups make, each to the slot of its number; nothing for a refused group.
std::optional<std::vector<Record>> records_of(const std::vector<Group>& groups) {
    std::vector<Record> records;
    std::size_t remembered_record = 0;
    bool anything_remembered = false;
    int remembered_cert = 0;
    for (const Group& group : groups) {
        // An encryption certificate is for SM2 alone.
        if (group.cert == 3 && group.key != 2) return std::nullopt;
        const Record made{group.cert, group.key, group.hash, false};
        if (group.key != 2) {
            records.push_back(made);
            continue;
        }
        const bool both_encryption = remembered_cert == 3 && group.cert == 3;
        const bool neither_encryption = remembered_cert != 3 && group.cert != 3;
        if (!anything_remembered || both_encryption || neither_encryption) {
            records.push_back(made);
            remembered_record = records.size() - 1;
            remembered_cert = group.cert;
            anything_remembered = true;
            continue;
        }
        records[remembered_record].paired = true;
        if (group.cert != 3) records[remembered_record].cert = group.cert;
    }
    return records;
}

std::string bytes_of_record(const Record& record) {
    return bytes_of(record.cert) + bytes_of(record.key) + bytes_of(record.hash) +
           std::string(1, record.paired ? '\1' : '\0') + std::string(7, '\0');
}

// What the token library and the caller must see.
struct Outcome {
    int code = 0;
    bool verified = false;
    Lines records;
    std::string text;

    bool operator==(const Outcome& other) const {
        return code == other.code && verified == other.verified && records == other.records &&
               text == other.text;
    }
};

Outcome expected(const std::vector<Group>& groups) {
    Outcome outcome;
    const auto records = records_of(groups);
    if (!records) {
        outcome.code = -401;
        return outcome;
    }
    for (std::size_t slot = 0; slot < records->size(); ++slot) {
        const Record& record = (*records)[slot];
        if (record.cert <= 0 || record.key <= 0) continue;
        if (slot == 0) outcome.verified = true;
        if (slot != 0) outcome.text += "||";
        outcome.text += "R";
        outcome.records.push_back(bytes_of_record(record));
    }
    return outcome;
}

std::string text_of(const std::vector<Group>& groups) {
    std::string text;
    for (const Group& group : groups) {
        if (!text.empty()) text += "|";
        text += "CertType(" + std::to_string(group.cert) + ")KeyType(" + std::to_string(group.key) +
                ")HashType(" + std::to_string(group.hash) + ")";
    }
    return text;
}

Outcome seen(const std::string& text) {
    recorder().forget();
    char buffer[64] = {};
    int length = sizeof buffer;
    Outcome outcome;
    outcome.code = Batch_InitAndGenerateCertRequest("A1", 0, text.c_str(), buffer, &length);
    outcome.text = buffer;
    for (const recording::Call& call : recorder().calls()) {
        if (call.entry == "VerifyPIN") {
            EXPECT_TRUE(outcome.records.empty()) << "the user is verified first: " << text;
            EXPECT_FALSE(outcome.verified) << "the user is verified once: " << text;
            outcome.verified = true;
        } else {
            EXPECT_EQ(call.entry, "GMCreatePKCS10Ex");
            outcome.records.push_back(call.bytes(1));
        }
    }
    return outcome;
}

// Adds one group of each kind to those before it; tells how many texts were compared.
int compare_all(std::vector<Group>& groups, std::size_t most) {
    if (groups.size() == most) return 0;
    int compared = 0;
    for (int cert = 0; cert <= 4; ++cert) {
        for (int key = 0; key <= 4; ++key) {
            groups.push_back({cert, key, static_cast<int>(groups.size()) + 5});
            const std::string text = text_of(groups);
            EXPECT_TRUE(seen(text) == expected(groups)) << text;
            compared += 1 + compare_all(groups, most);
            groups.pop_back();
        }
    }
    return compared;
}

}  // namespace

TEST(BatchPairing, follows_its_rule_for_every_type_in_one_to_three_groups) {
    recorder().on("GMCreatePKCS10Ex").request("R");
    std::vector<Group> groups;
    EXPECT_EQ(compare_all(groups, 3), 25 + 25 * 25 + 25 * 25 * 25);
}
