// Batch_InitAndGenerateCertRequest: skipped records, failures, the cache, what is handed out.
#include "api_test.h"
#include "seen_last_error.h"

namespace {

constexpr const char* one_group = "CertType(1)KeyType(2)";
constexpr const char* two_groups = "CertType(1)KeyType(1)|HashType(2)";

struct Batch {
    Batch(std::size_t room, int capacity, const char* request = one_group, int initialise = 0)
        : buffer(room), length(capacity) {
        code = Batch_InitAndGenerateCertRequest("A1", initialise, request, buffer.data(), &length);
    }
    CanaryBuffer buffer;
    int length;
    int code;
};

int probe(const char* request = one_group, int initialise = 0) {
    int length = 0;
    const int code = Batch_InitAndGenerateCertRequest("A1", initialise, request, nullptr, &length);
    return code != 0 ? code : length;
}

void answer(const std::string& request) {
    recorder().on("GMCreatePKCS10Ex").request(request);
}

}  // namespace

// ---- Skipped records ----------------------------------------------------------------------------

TEST(BatchResult, of_a_skipped_first_record_begins_with_its_separator) {
    answer("MIIB");
    const Batch batch(32, 32, "KeyType(1)|CertType(1)");
    EXPECT_EQ(batch.code, 0);
    EXPECT_TRUE(batch.buffer.holds_only(std::string("||MIIB", 7)));
    EXPECT_EQ(recorder().names(), (Lines{"GMCreatePKCS10Ex"}));
}

TEST(BatchResult, of_a_skipped_second_record_has_one_separator) {
    answer("R");
    const Batch batch(32, 32, "CertType(1)KeyType(1)|CertType(0)|CertType(2)");
    EXPECT_TRUE(batch.buffer.holds_only(std::string("R||R", 5)));
}

TEST(BatchResult, skips_records_with_a_type_of_0_or_less) {
    answer("R");
    EXPECT_EQ(probe("CertType(/)KeyType(1)"), 1);
    EXPECT_EQ(probe("CertType(1)KeyType(/)"), 1);
    EXPECT_EQ(probe("CertType(0)KeyType(2)"), 1);
    EXPECT_EQ(probe("CertType(1)KeyType(0)"), 1);
    EXPECT_EQ(trace(), Lines{});
    EXPECT_EQ(probe("CertType(1)KeyType(1)HashType(/)"), 2);
}

TEST(BatchResult, initialises_the_key_also_when_every_record_is_skipped) {
    EXPECT_EQ(probe("CertType(0)KeyType(1)", 1), 1);
    EXPECT_EQ(trace(), (Lines{"CustInitCard(\"A1\", 1, null, 0)"}));
}

TEST(BatchResult, of_an_empty_request_is_empty) {
    EXPECT_EQ(probe(""), 1);
    EXPECT_EQ(probe("||"), 1);
    EXPECT_EQ(trace(), Lines{});
    const Batch batch(8, 0, "|", 1);
    EXPECT_EQ(batch.code, 0);
    EXPECT_EQ(batch.length, 0);
    EXPECT_TRUE(batch.buffer.holds_only(std::string(1, '\0')));
    EXPECT_EQ(trace(), (Lines{"CustInitCard(\"A1\", 1, null, 0)"}));
}

TEST(BatchResult, takes_a_missing_request_text_for_an_empty_one) {
    EXPECT_EQ(probe(two_groups), 3);
}

// ---- Failures -----------------------------------------------------------------------------------

TEST(BatchResult, of_a_failed_initialisation_is_its_code) {
    recorder().on("CustInitCard").returns(5);
    const Batch batch(32, 32, one_group, 1);
    EXPECT_EQ(batch.code, 5);
    EXPECT_EQ(G_LastError, 5);
    EXPECT_EQ(batch.length, 32);
    EXPECT_TRUE(batch.buffer.untouched());
    EXPECT_EQ(recorder().names(), (Lines{"CustInitCard"}));
}

TEST(BatchResult, of_a_refused_PIN_is_its_code) {
    recorder().on("VerifyPIN").returns(0x63);
    const Batch batch(32, 32);
    EXPECT_EQ(batch.code, 0x63);
    EXPECT_EQ(G_LastError, 0x63);
    EXPECT_EQ(batch.length, 32);
    EXPECT_TRUE(batch.buffer.untouched());
    EXPECT_EQ(recorder().names(), (Lines{"VerifyPIN"}));
}

TEST(BatchResult, of_a_failed_request_is_its_code_and_the_text_is_released) {
    recorder().on("GMCreatePKCS10Ex", 1).request("first");
    recorder().on("GMCreatePKCS10Ex", 2).request("second").returns(-6);
    const Batch batch(32, 32, two_groups);
    EXPECT_EQ(batch.code, -6);
    EXPECT_EQ(G_LastError, -6);
    EXPECT_EQ(batch.length, 32);
    EXPECT_TRUE(batch.buffer.untouched());
    EXPECT_EQ(recorder().live_requests(), 0);
}

TEST(BatchResult, leaks_nothing_on_any_way) {
    expect_no_leak([] {
        answer("R");
        probe(two_groups);
        const Batch cached(32, 32, two_groups);
        const Batch small(32, 1, two_groups);
        const Batch fresh(32, 32, two_groups);
        recorder().on("GMCreatePKCS10Ex").returns(1);
        const Batch failed(32, 32, two_groups);
        recorder().on("GMCreatePKCS10Ex").returns(0);
        probe("Colour(1)");
    });
    EXPECT_EQ(recorder().live_requests(), 0);
}

// ---- Handed out ---------------------------------------------------------------------------------

TEST(BatchResult, accepts_a_length_equal_to_the_text_and_writes_the_NUL_behind_it) {
    answer("MIIB");
    const Batch batch(8, 4);
    EXPECT_EQ(batch.code, 0);
    EXPECT_EQ(batch.length, 4);
    EXPECT_TRUE(batch.buffer.holds_only(std::string("MIIB", 5)));
}

TEST(BatchResult, made_for_a_buffer_too_small_is_minus_404_with_the_length_alone) {
    answer("MIIB");
    const Batch batch(8, 3);
    EXPECT_EQ(batch.code, -404);
    EXPECT_EQ(G_LastError, -404);
    EXPECT_EQ(batch.length, 4);
    EXPECT_TRUE(batch.buffer.untouched());
    recorder().forget();
    const Batch again(8, 4);
    EXPECT_EQ(again.code, 0);
    EXPECT_EQ(recorder().calls("GMCreatePKCS10Ex").size(), 1U) << "nothing was kept";
}

TEST(BatchResult, takes_the_callers_length_as_signed) {
    const Batch batch(8, -1);
    EXPECT_EQ(batch.code, -404);
    EXPECT_EQ(batch.length, 0);
}

TEST(BatchResult, of_a_probe_is_the_length_with_the_NUL) {
    answer("MIIB");
    EXPECT_EQ(probe(), 5);
    EXPECT_EQ(probe(two_groups), 11);
}

// ---- The cache ----------------------------------------------------------------------------------

TEST(BatchCache, answers_the_call_after_a_probe_without_asking_and_is_used_up) {
    answer("MIIB");
    ASSERT_EQ(probe(one_group, 1), 5);
    recorder().forget();
    const Batch cached(8, 5, one_group, 1);
    EXPECT_EQ(cached.code, 0);
    EXPECT_EQ(cached.length, 4);
    EXPECT_TRUE(cached.buffer.holds_only(std::string("MIIB", 5)));
    EXPECT_EQ(trace(), Lines{});
    const Batch fresh(8, 5, one_group, 1);
    EXPECT_EQ(recorder().names(), (Lines{"CustInitCard", "GMCreatePKCS10Ex"}));
}

TEST(BatchCache, does_not_look_at_the_init_flag) {
    answer("MIIB");
    probe(one_group, 0);
    recorder().forget();
    const Batch cached(8, 5, one_group, 77);
    EXPECT_EQ(cached.code, 0);
    EXPECT_EQ(trace(), Lines{});
}

TEST(BatchCache, returns_the_last_error_that_it_finds) {
    answer("MIIB");
    probe();
    G_LastError = unrelated_code;
    const Batch cached(8, 5);
    EXPECT_EQ(cached.code, unrelated_code);
    EXPECT_EQ(G_LastError, unrelated_code);
    EXPECT_TRUE(cached.buffer.holds_only(std::string("MIIB", 5)));
}

TEST(BatchCache, keeps_its_text_for_a_buffer_too_small_and_writes_the_length_with_the_NUL) {
    answer("MIIB");
    probe();
    recorder().forget();
    const Batch small(8, 3);
    EXPECT_EQ(small.code, -404);
    EXPECT_EQ(G_LastError, -404);
    EXPECT_EQ(small.length, 5);
    EXPECT_TRUE(small.buffer.untouched());
    G_LastError = 0;
    const Batch fitting(8, 4);
    EXPECT_EQ(fitting.code, 0);
    EXPECT_TRUE(fitting.buffer.holds_only(std::string("MIIB", 5)));
    EXPECT_EQ(trace(), Lines{});
}

TEST(BatchCache, is_dropped_by_a_call_for_another_request_even_one_that_fails) {
    answer("MIIB");
    probe();
    const Batch refused(8, 5, "Colour(1)");
    EXPECT_EQ(refused.code, -401);
    recorder().forget();
    const Batch fresh(8, 5);
    EXPECT_EQ(recorder().calls("GMCreatePKCS10Ex").size(), 1U);
}

TEST(BatchCache, is_kept_by_a_probe_that_fails_and_by_missing_arguments) {
    answer("MIIB");
    probe();
    recorder().on("VerifyPIN").returns(1);
    probe();
    CanaryBuffer buffer(8);
    int length = 8;
    Batch_InitAndGenerateCertRequest("A1", 0, nullptr, buffer.data(), &length);
    recorder().forget();
    G_LastError = 0;
    const Batch cached(8, 5);
    EXPECT_EQ(cached.code, 0);
    EXPECT_EQ(trace(), Lines{});
}

TEST(BatchCache, tells_keys_apart) {
    answer("MIIB");
    probe();
    recorder().forget();
    CanaryBuffer buffer(8);
    int length = 8;
    EXPECT_EQ(Batch_InitAndGenerateCertRequest("A2", 0, one_group, buffer.data(), &length), 0);
    EXPECT_EQ(recorder().calls("GMCreatePKCS10Ex").size(), 1U);
}

TEST(BatchCache, does_not_take_a_null_serial_number_for_any_key) {
    answer("MIIB");
    const auto fetch = [](const char* serial) {
        CanaryBuffer buffer(8);
        int length = 8;
        recorder().forget();
        EXPECT_EQ(Batch_InitAndGenerateCertRequest(serial, 0, one_group, buffer.data(), &length),
                  0);
        return recorder().calls("GMCreatePKCS10Ex").size();
    };
    probe();
    EXPECT_EQ(fetch(nullptr), 1U);
    EXPECT_EQ(fetch("A1"), 1U) << "what was kept for the key is dropped";
    int length = 0;
    ASSERT_EQ(Batch_InitAndGenerateCertRequest(nullptr, 0, one_group, nullptr, &length), 0);
    EXPECT_EQ(fetch("A1"), 1U);
}

TEST(BatchCache, is_shared_with_single_requests_in_both_directions) {
    answer("batch");
    recorder().on("GMCreatePKCS10").request("single");
    CanaryBuffer buffer(16);
    int length = 16;
    probe();
    recorder().forget();
    EXPECT_EQ(GenerateCertRequest("A1", one_group, buffer.data(), &length), 0);
    EXPECT_TRUE(buffer.holds_only(std::string("batch", 6)));
    EXPECT_EQ(trace(), Lines{});
    ASSERT_EQ(GenerateCertRequest("A1", one_group, nullptr, &length), 0);
    recorder().forget();
    const Batch cached(16, 16);
    EXPECT_TRUE(cached.buffer.holds_only(std::string("single", 7)));
    EXPECT_EQ(trace(), Lines{});
}

// ---- G_LastError --------------------------------------------------------------------------------

TEST(BatchResult, clears_the_last_error_before_it_asks) {
    EXPECT_EQ(last_error_seen_by("VerifyPIN", [] { probe(); }), 0);
    EXPECT_EQ(last_error_seen_by("CustInitCard", [] { probe(one_group, 1); }), 0);
}

TEST(BatchResult, without_groups_stores_0) {
    Initialize();
    G_LastError = unrelated_code;
    EXPECT_EQ(probe(""), 1);
    EXPECT_EQ(G_LastError, 0);
}
