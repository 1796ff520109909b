// GetLabel: the key's label out of an internal buffer of 512 bytes.
#include "api_test.h"
#include "lgn_exception.h"
#include "sanitized.h"
#include "seen_last_error.h"

namespace {

constexpr int internal = 512;

struct FetchedLabel {
    FetchedLabel(std::size_t room, int capacity) : buffer(room), length(capacity) {
        code = GetLabel("A1", buffer.data(), &length);
    }
    CanaryBuffer buffer;
    int length;
    int code;
};

}  // namespace

TEST(GetLabel, hands_a_copy_of_the_serial_number_on_with_a_zeroed_buffer) {
    const char* const serial = "A1";
    int length = 0;
    EXPECT_EQ(GetLabel(serial, nullptr, &length), 0);
    EXPECT_EQ(trace(), (Lines{"GetLabel(\"A1\", zero[512])"}));
    EXPECT_NE(recorder().only("GetLabel").at(0).address, serial);
}

TEST(GetLabel, lets_the_token_write_into_its_copy_of_the_serial_number) {
    char serial[] = "A1";
    recorder().on("GetLabel").writes(0, "zz");
    int length = 0;
    EXPECT_EQ(GetLabel(serial, nullptr, &length), 0);
    EXPECT_STREQ(serial, "A1");
    EXPECT_EQ(GetLabel(serial, nullptr, &length), 0);
    EXPECT_EQ(recorder().calls("GetLabel").back().bytes(0), "A1");
}

TEST(GetLabel, offers_a_zeroed_buffer_each_time) {
    recorder().on("GetLabel").writes(1, std::string(internal, 'x'));
    int length = 0;
    GetLabel("A1", nullptr, &length);
    GetLabel("A1", nullptr, &length);
    const std::string call = "GetLabel(\"A1\", zero[512])";
    EXPECT_EQ(trace(), (Lines{call, call}));
}

TEST(GetLabel, without_length_pointer_or_serial_number_is_minus_401) {
    CanaryBuffer buffer(8);
    int length = 8;
    EXPECT_EQ(GetLabel("A1", buffer.data(), nullptr), -401);
    EXPECT_EQ(G_LastError, -401);
    G_LastError = 0;
    EXPECT_EQ(GetLabel(nullptr, buffer.data(), &length), -401);
    EXPECT_EQ(G_LastError, -401);
    EXPECT_EQ(GetLabel(nullptr, nullptr, &length), -401);
    EXPECT_EQ(length, 8);
    EXPECT_TRUE(buffer.untouched());
    EXPECT_EQ(trace(), Lines{});
    EXPECT_TRUE(g_initFlag);
}

TEST(GetLabel, of_an_empty_serial_number_is_minus_401_without_asking) {
    CanaryBuffer buffer(8);
    int length = 8;
    EXPECT_EQ(GetLabel("", buffer.data(), &length), -401);
    EXPECT_EQ(G_LastError, -401);
    EXPECT_EQ(GetLabel("", nullptr, &length), -401);
    EXPECT_EQ(length, 8);
    EXPECT_TRUE(buffer.untouched());
    EXPECT_EQ(trace(), Lines{});
}

TEST(GetLabel, clears_the_last_error_before_it_asks) {
    int length = 0;
    EXPECT_EQ(last_error_seen_by("GetLabel", [&] { GetLabel("A1", nullptr, &length); }), 0);
}

TEST(GetLabel, leaves_buffer_and_length_when_the_token_refuses) {
    recorder().on("GetLabel").returns(31).writes(1, "label");
    const FetchedLabel fetched(64, 64);
    EXPECT_EQ(fetched.code, 31);
    EXPECT_EQ(G_LastError, 31);
    EXPECT_EQ(fetched.length, 64);
    EXPECT_TRUE(fetched.buffer.untouched());
}

TEST(GetLabel, answers_a_probe_with_the_length_and_the_NUL) {
    recorder().on("GetLabel").writes(1, "label");
    int length = 0;
    EXPECT_EQ(GetLabel("A1", nullptr, &length), 0);
    EXPECT_EQ(length, 6);
}

TEST(GetLabel, accepts_a_length_equal_to_the_label_and_writes_the_NUL_behind_it) {
    recorder().on("GetLabel").writes(1, "label");
    const FetchedLabel fetched(8, 5);
    EXPECT_EQ(fetched.code, 0);
    EXPECT_EQ(fetched.length, 5);
    EXPECT_TRUE(fetched.buffer.holds_only(std::string("label", 6)));
}

TEST(GetLabel, writes_no_more_than_text_and_NUL_into_a_larger_buffer) {
    recorder().on("GetLabel").writes(1, "label");
    const FetchedLabel fetched(64, 64);
    EXPECT_EQ(fetched.length, 5);
    EXPECT_TRUE(fetched.buffer.holds_only(std::string("label", 6)));
}

TEST(GetLabel, with_a_shorter_length_is_minus_404_and_writes_the_length_without_the_NUL) {
    recorder().on("GetLabel").writes(1, "label");
    const FetchedLabel fetched(8, 4);
    EXPECT_EQ(fetched.code, -404);
    EXPECT_EQ(G_LastError, -404);
    EXPECT_EQ(fetched.length, 5);
    EXPECT_TRUE(fetched.buffer.untouched());
}

TEST(GetLabel, takes_the_callers_length_as_signed) {
    const FetchedLabel fetched(8, -1);
    EXPECT_EQ(fetched.code, -404);
    EXPECT_EQ(fetched.length, 0);
    EXPECT_TRUE(fetched.buffer.untouched());
}

TEST(GetLabel, of_an_empty_label_accepts_a_length_of_0) {
    const FetchedLabel fetched(2, 0);
    EXPECT_EQ(fetched.code, 0);
    EXPECT_EQ(fetched.length, 0);
    EXPECT_TRUE(fetched.buffer.holds_only(std::string(1, '\0')));
}

TEST(GetLabel, never_reads_past_a_full_buffer_without_a_NUL) {
    const std::string text(internal, 'l');
    recorder().on("GetLabel").writes(1, text);
    int length = 0;
    EXPECT_EQ(GetLabel("A1", nullptr, &length), 0);
    EXPECT_EQ(length, internal + 1);
    const FetchedLabel fetched(internal + 8, internal);
    EXPECT_EQ(fetched.code, 0);
    EXPECT_EQ(fetched.length, internal);
    EXPECT_TRUE(fetched.buffer.holds_only(text + std::string(1, '\0')));
}

TEST(GetLabel, logs_nothing) {
    const FetchedLabel fetched(8, 8);
    EXPECT_FALSE(log_exists());
}

TEST(GetLabel, leaks_nothing) {
    int length = 0;
    expect_no_leak([&length] {
        GetLabel("A1", nullptr, &length);
        GetLabel("", nullptr, &length);
    });
}

#if !KESTA_SANITIZED
TEST(GetLabel, lets_the_exception_of_an_exhausted_memory_pass) {
    Initialize();
    int length = 77;
    const FailingAllocation failing(1);
    EXPECT_EQ(code_thrown_by([&length] { GetLabel("A1", nullptr, &length); }), out_of_memory);
    EXPECT_TRUE(failing.happened());
    EXPECT_EQ(length, 77);
    EXPECT_EQ(trace(), Lines{});
}
#endif
