// Batch_InitAndGenerateCertRequest: skipped records, failures, the cache, what is handed out.
#include "api_test.h"
#include "seen_last_error.h"

namespace {

constexpr const char* kOneGroup = "CertType(1)KeyType(2)";
constexpr const char* kTwoGroups = "CertType(1)KeyType(1)|HashType(2)";

struct Batch {
    Batch(std::size_t room, int capacity, const char* request = kOneGroup, int initialise = 0)
        : buffer(room), length(capacity) {
        code = Batch_InitAndGenerateCertRequest("A1", initialise, request, buffer.data(), &length);
    }
    CanaryBuffer buffer;
    int length;
    int code;
};

int Probe(const char* request = kOneGroup, int initialise = 0) {
    int length = 0;
    const int code = Batch_InitAndGenerateCertRequest("A1", initialise, request, nullptr, &length);
    return code != 0 ? code : length;
}

void Answer(const std::string& request) {
    TheRecorder().On("GMCreatePKCS10Ex").Request(request);
}

}  // namespace

// ---- Skipped records ----------------------------------------------------------------------------

TEST(BatchResult, of_a_skipped_first_record_begins_with_its_separator) {
    Answer("MIIB");
    const Batch batch(32, 32, "KeyType(1)|CertType(1)");
    EXPECT_EQ(batch.code, 0);
    EXPECT_TRUE(batch.buffer.HoldsOnly(std::string("||MIIB", 7)));
    EXPECT_EQ(TheRecorder().Names(), (Lines{"GMCreatePKCS10Ex"}));
}

TEST(BatchResult, of_a_skipped_second_record_has_one_separator) {
    Answer("R");
    const Batch batch(32, 32, "CertType(1)KeyType(1)|CertType(0)|CertType(2)");
    EXPECT_TRUE(batch.buffer.HoldsOnly(std::string("R||R", 5)));
}

TEST(BatchResult, skips_records_with_a_type_of_0_or_less) {
    Answer("R");
    EXPECT_EQ(Probe("CertType(/)KeyType(1)"), 1);
    EXPECT_EQ(Probe("CertType(1)KeyType(/)"), 1);
    EXPECT_EQ(Probe("CertType(0)KeyType(2)"), 1);
    EXPECT_EQ(Probe("CertType(1)KeyType(0)"), 1);
    EXPECT_EQ(Trace(), Lines{});
    EXPECT_EQ(Probe("CertType(1)KeyType(1)HashType(/)"), 2);
}

TEST(BatchResult, initialises_the_key_also_when_every_record_is_skipped) {
    EXPECT_EQ(Probe("CertType(0)KeyType(1)", 1), 1);
    EXPECT_EQ(Trace(), (Lines{"CustInitCard(\"A1\", 1, null, 0)"}));
}

TEST(BatchResult, of_an_empty_request_is_empty) {
    EXPECT_EQ(Probe(""), 1);
    EXPECT_EQ(Probe("||"), 1);
    EXPECT_EQ(Trace(), Lines{});
    const Batch batch(8, 0, "|", 1);
    EXPECT_EQ(batch.code, 0);
    EXPECT_EQ(batch.length, 0);
    EXPECT_TRUE(batch.buffer.HoldsOnly(std::string(1, '\0')));
    EXPECT_EQ(Trace(), (Lines{"CustInitCard(\"A1\", 1, null, 0)"}));
}

TEST(BatchResult, takes_a_missing_request_text_for_an_empty_one) {
    EXPECT_EQ(Probe(kTwoGroups), 3);
}

// ---- Failures -----------------------------------------------------------------------------------

TEST(BatchResult, of_a_failed_initialisation_is_its_code) {
    TheRecorder().On("CustInitCard").Returns(5);
    const Batch batch(32, 32, kOneGroup, 1);
    EXPECT_EQ(batch.code, 5);
    EXPECT_EQ(G_LastError, 5);
    EXPECT_EQ(batch.length, 32);
    EXPECT_TRUE(batch.buffer.Untouched());
    EXPECT_EQ(TheRecorder().Names(), (Lines{"CustInitCard"}));
}

TEST(BatchResult, of_a_refused_PIN_is_its_code) {
    TheRecorder().On("VerifyPIN").Returns(0x63);
    const Batch batch(32, 32);
    EXPECT_EQ(batch.code, 0x63);
    EXPECT_EQ(G_LastError, 0x63);
    EXPECT_EQ(batch.length, 32);
    EXPECT_TRUE(batch.buffer.Untouched());
    EXPECT_EQ(TheRecorder().Names(), (Lines{"VerifyPIN"}));
}

TEST(BatchResult, of_a_failed_request_is_its_code_and_the_text_is_released) {
    TheRecorder().On("GMCreatePKCS10Ex", 1).Request("first");
    TheRecorder().On("GMCreatePKCS10Ex", 2).Request("second").Returns(-6);
    const Batch batch(32, 32, kTwoGroups);
    EXPECT_EQ(batch.code, -6);
    EXPECT_EQ(G_LastError, -6);
    EXPECT_EQ(batch.length, 32);
    EXPECT_TRUE(batch.buffer.Untouched());
    EXPECT_EQ(TheRecorder().LiveRequests(), 0);
}

TEST(BatchResult, leaks_nothing_on_any_way) {
    ExpectNoLeak([] {
        Answer("R");
        Probe(kTwoGroups);
        const Batch cached(32, 32, kTwoGroups);
        const Batch small(32, 1, kTwoGroups);
        const Batch fresh(32, 32, kTwoGroups);
        TheRecorder().On("GMCreatePKCS10Ex").Returns(1);
        const Batch failed(32, 32, kTwoGroups);
        TheRecorder().On("GMCreatePKCS10Ex").Returns(0);
        Probe("Colour(1)");
    });
    EXPECT_EQ(TheRecorder().LiveRequests(), 0);
}

// ---- Handed out ---------------------------------------------------------------------------------

TEST(BatchResult, accepts_a_length_equal_to_the_text_and_writes_the_NUL_behind_it) {
    Answer("MIIB");
    const Batch batch(8, 4);
    EXPECT_EQ(batch.code, 0);
    EXPECT_EQ(batch.length, 4);
    EXPECT_TRUE(batch.buffer.HoldsOnly(std::string("MIIB", 5)));
}

TEST(BatchResult, made_for_a_buffer_too_small_is_minus_404_with_the_length_alone) {
    Answer("MIIB");
    const Batch batch(8, 3);
    EXPECT_EQ(batch.code, -404);
    EXPECT_EQ(G_LastError, -404);
    EXPECT_EQ(batch.length, 4);
    EXPECT_TRUE(batch.buffer.Untouched());
    TheRecorder().Forget();
    const Batch again(8, 4);
    EXPECT_EQ(again.code, 0);
    EXPECT_EQ(TheRecorder().Calls("GMCreatePKCS10Ex").size(), 1U) << "nothing was kept";
}

TEST(BatchResult, takes_the_callers_length_as_signed) {
    const Batch batch(8, -1);
    EXPECT_EQ(batch.code, -404);
    EXPECT_EQ(batch.length, 0);
}

TEST(BatchResult, of_a_probe_is_the_length_with_the_NUL) {
    Answer("MIIB");
    EXPECT_EQ(Probe(), 5);
    EXPECT_EQ(Probe(kTwoGroups), 11);
}

// ---- The cache ----------------------------------------------------------------------------------

TEST(BatchCache, answers_the_call_after_a_probe_without_asking_and_is_used_up) {
    Answer("MIIB");
    ASSERT_EQ(Probe(kOneGroup, 1), 5);
    TheRecorder().Forget();
    const Batch cached(8, 5, kOneGroup, 1);
    EXPECT_EQ(cached.code, 0);
    EXPECT_EQ(cached.length, 4);
    EXPECT_TRUE(cached.buffer.HoldsOnly(std::string("MIIB", 5)));
    EXPECT_EQ(Trace(), Lines{});
    const Batch fresh(8, 5, kOneGroup, 1);
    EXPECT_EQ(TheRecorder().Names(), (Lines{"CustInitCard", "GMCreatePKCS10Ex"}));
}

TEST(BatchCache, does_not_look_at_the_init_flag) {
    Answer("MIIB");
    Probe(kOneGroup, 0);
    TheRecorder().Forget();
    const Batch cached(8, 5, kOneGroup, 77);
    EXPECT_EQ(cached.code, 0);
    EXPECT_EQ(Trace(), Lines{});
}

TEST(BatchCache, returns_the_last_error_that_it_finds) {
    Answer("MIIB");
    Probe();
    G_LastError = unrelated_code;
    const Batch cached(8, 5);
    EXPECT_EQ(cached.code, unrelated_code);
    EXPECT_EQ(G_LastError, unrelated_code);
    EXPECT_TRUE(cached.buffer.HoldsOnly(std::string("MIIB", 5)));
}

TEST(BatchCache, keeps_its_text_for_a_buffer_too_small_and_writes_the_length_with_the_NUL) {
    Answer("MIIB");
    Probe();
    TheRecorder().Forget();
    const Batch small(8, 3);
    EXPECT_EQ(small.code, -404);
    EXPECT_EQ(G_LastError, -404);
    EXPECT_EQ(small.length, 5);
    EXPECT_TRUE(small.buffer.Untouched());
    G_LastError = 0;
    const Batch fitting(8, 4);
    EXPECT_EQ(fitting.code, 0);
    EXPECT_TRUE(fitting.buffer.HoldsOnly(std::string("MIIB", 5)));
    EXPECT_EQ(Trace(), Lines{});
}

TEST(BatchCache, is_dropped_by_a_call_for_another_request_even_one_that_fails) {
    Answer("MIIB");
    Probe();
    const Batch refused(8, 5, "Colour(1)");
    EXPECT_EQ(refused.code, -401);
    TheRecorder().Forget();
    const Batch fresh(8, 5);
    EXPECT_EQ(TheRecorder().Calls("GMCreatePKCS10Ex").size(), 1U);
}

TEST(BatchCache, is_kept_by_a_probe_that_fails_and_by_missing_arguments) {
    Answer("MIIB");
    Probe();
    TheRecorder().On("VerifyPIN").Returns(1);
    Probe();
    CanaryBuffer buffer(8);
    int length = 8;
    Batch_InitAndGenerateCertRequest("A1", 0, nullptr, buffer.data(), &length);
    TheRecorder().Forget();
    G_LastError = 0;
    const Batch cached(8, 5);
    EXPECT_EQ(cached.code, 0);
    EXPECT_EQ(Trace(), Lines{});
}

TEST(BatchCache, tells_keys_apart) {
    Answer("MIIB");
    Probe();
    TheRecorder().Forget();
    CanaryBuffer buffer(8);
    int length = 8;
    EXPECT_EQ(Batch_InitAndGenerateCertRequest("A2", 0, kOneGroup, buffer.data(), &length), 0);
    EXPECT_EQ(TheRecorder().Calls("GMCreatePKCS10Ex").size(), 1U);
}

TEST(BatchCache, does_not_take_a_null_serial_number_for_any_key) {
    Answer("MIIB");
    const auto fetch = [](const char* serial) {
        CanaryBuffer buffer(8);
        int length = 8;
        TheRecorder().Forget();
        EXPECT_EQ(Batch_InitAndGenerateCertRequest(serial, 0, kOneGroup, buffer.data(), &length),
                  0);
        return TheRecorder().Calls("GMCreatePKCS10Ex").size();
    };
    Probe();
    EXPECT_EQ(fetch(nullptr), 1U);
    EXPECT_EQ(fetch("A1"), 1U) << "what was kept for the key is dropped";
    int length = 0;
    ASSERT_EQ(Batch_InitAndGenerateCertRequest(nullptr, 0, kOneGroup, nullptr, &length), 0);
    EXPECT_EQ(fetch("A1"), 1U);
}

TEST(BatchCache, is_shared_with_single_requests_in_both_directions) {
    Answer("batch");
    TheRecorder().On("GMCreatePKCS10").Request("single");
    CanaryBuffer buffer(16);
    int length = 16;
    Probe();
    TheRecorder().Forget();
    EXPECT_EQ(GenerateCertRequest("A1", kOneGroup, buffer.data(), &length), 0);
    EXPECT_TRUE(buffer.HoldsOnly(std::string("batch", 6)));
    EXPECT_EQ(Trace(), Lines{});
    ASSERT_EQ(GenerateCertRequest("A1", kOneGroup, nullptr, &length), 0);
    TheRecorder().Forget();
    const Batch cached(16, 16);
    EXPECT_TRUE(cached.buffer.HoldsOnly(std::string("single", 7)));
    EXPECT_EQ(Trace(), Lines{});
}

// ---- G_LastError --------------------------------------------------------------------------------

TEST(BatchResult, clears_the_last_error_before_it_asks) {
    EXPECT_EQ(LastErrorSeenBy("VerifyPIN", [] { Probe(); }), 0);
    EXPECT_EQ(LastErrorSeenBy("CustInitCard", [] { Probe(kOneGroup, 1); }), 0);
}

TEST(BatchResult, without_groups_stores_0) {
    Initialize();
    G_LastError = unrelated_code;
    EXPECT_EQ(Probe(""), 1);
    EXPECT_EQ(G_LastError, 0);
}
