// Enrolment, imports and the wait, on a table that the test fills.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "certificate_import.h"
#include "enrolment.h"
#include "event_wait.h"

namespace {

// What the entry points were asked, in order.
std::vector<std::string>& Asked() {
    static std::vector<std::string> calls;
    return calls;
}

int Note(const std::string& call) {
    Asked().push_back(call);
    return KESTA_OK;
}

class TokenModule : public testing::Test {
protected:
    TokenModule() {
        Asked().clear();
        table.m_hLibrary = this;
        table.m_pVerifyPIN = [](const char*) { return Note("verify"); };
        table.m_pCustInitCard = [](const char*, std::uint32_t, void*, std::uint32_t) {
            return Note("initialise");
        };
        table.m_pGMCreatePKCS10 = [](char*, std::uint32_t certificate, std::uint32_t key,
                                     std::uint32_t hash, char** request, void*, std::uint32_t) {
            *request = new char[2]{'R', '\0'};
            return Note("request " + std::to_string(certificate) + std::to_string(key) +
                        std::to_string(hash));
        };
        table.m_pGMCreatePKCS10Ex = [](char*, KestaRequestRecord* record, char** request,
                                       std::uint32_t, void*, std::uint32_t) {
            *request = new char[2]{'R', '\0'};
            return Note("record " + std::to_string(record->certType));
        };
        table.m_pGMImportPriKey = [](const char*, char* key, std::uint32_t) {
            return Note("key " + std::string(key));
        };
        table.m_pGMWritePKCS7 = [](const char*, const char* certificate, KestaStringObject&) {
            return Note("certificate " + std::string(certificate));
        };
    }

    using Calls = std::vector<std::string>;
    CommonFunction table;
    const kesta::Token token{table};
    LgnString requests;
};

}  // namespace

TEST_F(TokenModule, that_is_not_bound_asks_nobody) {
    table.m_hLibrary = nullptr;
    EXPECT_EQ(kesta::MakeRequests(token, "A1", "CertType(1)", requests), KESTA_NOT_BOUND);
    EXPECT_EQ(kesta::ImportCertificate(token, "A1", "C"), KESTA_NOT_BOUND);
    EXPECT_EQ(Asked(), Calls{});
}

TEST_F(TokenModule, requests_verify_the_user_for_each_group) {
    const char* const groups = "CertType(1)KeyType(2)HashType(3)|KeyType(3)";
    EXPECT_EQ(kesta::MakeRequests(token, "A1", groups, requests), KESTA_OK);
    EXPECT_EQ(Asked(), (Calls{"verify", "request 123", "verify", "request 133"}));
    EXPECT_STREQ(requests.GetString(), "R||R");
}

TEST_F(TokenModule, a_batch_verifies_before_the_first_records_request_alone) {
    const char* const groups = "CertType(1)KeyType(1)|CertType(2)";
    EXPECT_EQ(kesta::MakeBatchRequests(token, "A1", 0, groups, requests), KESTA_OK);
    EXPECT_EQ(Asked(), (Calls{"verify", "record 1", "record 2"}));
}

TEST_F(TokenModule, a_batch_whose_first_record_is_skipped_verifies_nobody) {
    const char* const groups = "KeyType(1)|CertType(2)";
    EXPECT_EQ(kesta::MakeBatchRequests(token, "A1", 0, groups, requests), KESTA_OK);
    EXPECT_EQ(Asked(), Calls{"record 2"});
    EXPECT_STREQ(requests.GetString(), "||R");
}

TEST_F(TokenModule, a_batch_initialises_in_place_of_verifying) {
    EXPECT_EQ(kesta::MakeBatchRequests(token, "A1", 1, "CertType(1)KeyType(1)", requests),
              KESTA_OK);
    EXPECT_EQ(Asked(), (Calls{"initialise", "record 1"}));
}

TEST_F(TokenModule, a_key_is_imported_before_its_certificate) {
    EXPECT_EQ(kesta::ImportEncryption(token, "A1", "C,\r\n", "K,1"), KESTA_OK);
    EXPECT_EQ(Asked(), (Calls{"key K1", "certificate C\r\n"}));
}

TEST_F(TokenModule, a_bundle_is_imported_kind_by_kind) {
    EXPECT_EQ(kesta::ImportBundle(token, "A1", "EncCert(E)|EncPriKey(K)|SignCert(S)"), KESTA_OK);
    EXPECT_EQ(Asked(), (Calls{"certificate S", "key K", "certificate E"}));
}

TEST_F(TokenModule, a_bundle_that_imports_nothing_is_refused) {
    EXPECT_EQ(kesta::ImportBundle(token, "A1", "signcert(S)"), KESTA_BAD_ARGUMENT);
    EXPECT_EQ(Asked(), Calls{});
}

TEST(EventModule, forgets_the_slots_that_it_cannot_list) {
    kesta::SlotMap slots = {{1, "old"}};
    kesta::ReadCurrentSlots(slots);
    EXPECT_TRUE(slots.empty());
}

TEST(EventModule, leaves_alone_what_a_child_inherits_half_changed) {
    kesta::SlotMap slots;
    kesta::ReadCurrentSlots(slots);
    EXPECT_EXIT(
        {
            std::memset(static_cast<void*>(&slots), 0x5A, sizeof slots);
            kesta::ReadCurrentSlots(slots);
            std::exit(slots.empty() ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST(EventModule, writes_nothing_when_the_wait_cannot_begin) {
    kesta::SlotMap slots;
    std::atomic<bool> running{false};
    unsigned kind = 9, length = 9;
    char mediaId[17] = "before";
    EXPECT_EQ(kesta::WaitForEvent(slots, running, {&kind, mediaId, &length}), -1);
    EXPECT_EQ(kind, 9u);
    EXPECT_EQ(length, 9u);
    EXPECT_STREQ(mediaId, "before");
    EXPECT_TRUE(running) << "until it is stopped or the next wait begins";
}
