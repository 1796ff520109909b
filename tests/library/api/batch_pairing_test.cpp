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
std::optional<std::vector<Record>> RecordsOf(const std::vector<Group>& groups) {
    std::vector<Record> records;
    std::size_t rememberedRecord = 0;
    bool anythingRemembered = false;
    int rememberedCert = 0;
    for (const Group& group : groups) {
        // An encryption certificate is for SM2 alone.
        if (group.cert == 3 && group.key != 2) return std::nullopt;
        const Record made{group.cert, group.key, group.hash, false};
        if (group.key != 2) {
            records.push_back(made);
            continue;
        }
        const bool bothEncryption = rememberedCert == 3 && group.cert == 3;
        const bool neitherEncryption = rememberedCert != 3 && group.cert != 3;
        if (!anythingRemembered || bothEncryption || neitherEncryption) {
            records.push_back(made);
            rememberedRecord = records.size() - 1;
            rememberedCert = group.cert;
            anythingRemembered = true;
            continue;
        }
        records[rememberedRecord].paired = true;
        if (group.cert != 3) records[rememberedRecord].cert = group.cert;
    }
    return records;
}

std::string BytesOfRecord(const Record& record) {
    return BytesOf(record.cert) + BytesOf(record.key) + BytesOf(record.hash) +
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

Outcome Expected(const std::vector<Group>& groups) {
    Outcome outcome;
    const auto records = RecordsOf(groups);
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
        outcome.records.push_back(BytesOfRecord(record));
    }
    return outcome;
}

std::string TextOf(const std::vector<Group>& groups) {
    std::string text;
    for (const Group& group : groups) {
        if (!text.empty()) text += "|";
        text += "CertType(" + std::to_string(group.cert) + ")KeyType(" + std::to_string(group.key) +
                ")HashType(" + std::to_string(group.hash) + ")";
    }
    return text;
}

Outcome Seen(const std::string& text) {
    TheRecorder().Forget();
    char buffer[64] = {};
    int length = sizeof buffer;
    Outcome outcome;
    outcome.code = Batch_InitAndGenerateCertRequest("A1", 0, text.c_str(), buffer, &length);
    outcome.text = buffer;
    for (const recording::Call& call : TheRecorder().Calls()) {
        if (call.entry == "VerifyPIN") {
            EXPECT_TRUE(outcome.records.empty()) << "the user is verified first: " << text;
            EXPECT_FALSE(outcome.verified) << "the user is verified once: " << text;
            outcome.verified = true;
        } else {
            EXPECT_EQ(call.entry, "GMCreatePKCS10Ex");
            outcome.records.push_back(call.Bytes(1));
        }
    }
    return outcome;
}

// Adds one group of each kind to those before it; tells how many texts were compared.
int CompareAll(std::vector<Group>& groups, std::size_t most) {
    if (groups.size() == most) return 0;
    int compared = 0;
    for (int cert = 0; cert <= 4; ++cert) {
        for (int key = 0; key <= 4; ++key) {
            groups.push_back({cert, key, static_cast<int>(groups.size()) + 5});
            const std::string text = TextOf(groups);
            EXPECT_TRUE(Seen(text) == Expected(groups)) << text;
            compared += 1 + CompareAll(groups, most);
            groups.pop_back();
        }
    }
    return compared;
}

}  // namespace

TEST(BatchPairing, follows_its_rule_for_every_type_in_one_to_three_groups) {
    TheRecorder().On("GMCreatePKCS10Ex").Request("R");
    std::vector<Group> groups;
    EXPECT_EQ(CompareAll(groups, 3), 25 + 25 * 25 + 25 * 25 * 25);
}
