// GetErrorMsg: the token library's message for a code.
#include <climits>
#include <stdexcept>

#include "api_test.h"
#include "lgn_exception.h"
#include "sanitized.h"

namespace {

const std::string message = "no key";  // 6 characters

}  // namespace

TEST(GetErrorMsg, copies_the_tokens_text_with_its_NUL) {
    recorder().on("X_ErrorConvert_UOS").message(message);
    CanaryBuffer buffer(20);
    int length = 20;
    EXPECT_EQ(GetErrorMsg(0x6A82, buffer.data(), &length), 0);
    EXPECT_TRUE(buffer.holds_only(message + '\0'));
    EXPECT_EQ(length, 7);
    EXPECT_EQ(trace(), (Lines{"X_ErrorConvert_UOS(27266)"}));
    EXPECT_FALSE(log_exists());
}

TEST(GetErrorMsg, passes_negative_codes_as_signed_numbers) {
    CanaryBuffer buffer(20);
    for (const int code : {-101, -404, INT_MIN, INT_MAX, 0}) {
        int length = 20;
        EXPECT_EQ(GetErrorMsg(code, buffer.data(), &length), 0);
    }
    EXPECT_EQ(trace(), (Lines{"X_ErrorConvert_UOS(-101)", "X_ErrorConvert_UOS(-404)",
                              "X_ErrorConvert_UOS(-2147483648)", "X_ErrorConvert_UOS(2147483647)",
                              "X_ErrorConvert_UOS(0)"}));
}

TEST(GetErrorMsg, accepts_a_capacity_one_above_the_text) {
    recorder().on("X_ErrorConvert_UOS").message(message);
    CanaryBuffer buffer(7);
    int length = 7;
    EXPECT_EQ(GetErrorMsg(1, buffer.data(), &length), 0);
    EXPECT_EQ(length, 7);
    EXPECT_TRUE(buffer.holds_only(message + '\0'));
}

TEST(GetErrorMsg, refuses_a_capacity_equal_to_the_text) {
    recorder().on("X_ErrorConvert_UOS").message(message);
    CanaryBuffer buffer(6);
    int length = 6;
    EXPECT_EQ(GetErrorMsg(1, buffer.data(), &length), -404);
    EXPECT_EQ(length, 7);
    EXPECT_EQ(G_LastError, -404);
    EXPECT_TRUE(buffer.untouched());
}

TEST(GetErrorMsg, compares_a_negative_capacity_as_signed) {
    recorder().on("X_ErrorConvert_UOS").message(message);
    CanaryBuffer buffer(20);
    int length = -1;
    EXPECT_EQ(GetErrorMsg(1, buffer.data(), &length), -404);
    EXPECT_EQ(length, 7);
    EXPECT_TRUE(buffer.untouched());
}

TEST(GetErrorMsg, answers_a_probe_with_200_for_every_code_without_asking) {
    recorder().on("X_ErrorConvert_UOS").message(std::string(1000, 'm'));
    for (const int code : {0, 1, -101, -404, INT_MIN, INT_MAX}) {
        int length = -5;
        EXPECT_EQ(GetErrorMsg(code, nullptr, &length), 0);
        EXPECT_EQ(length, 200);
    }
    EXPECT_EQ(trace(), Lines{});
}

TEST(GetErrorMsg, leaves_the_last_error_after_a_probe) {
    Initialize();
    G_LastError = unrelated_code;
    int length = 0;
    EXPECT_EQ(GetErrorMsg(1, nullptr, &length), 0);
    EXPECT_EQ(G_LastError, unrelated_code);
}

TEST(GetErrorMsg, leaves_the_last_error_after_success) {
    Initialize();
    G_LastError = unrelated_code;
    CanaryBuffer buffer(20);
    int length = 20;
    EXPECT_EQ(GetErrorMsg(1, buffer.data(), &length), 0);
    EXPECT_EQ(G_LastError, unrelated_code);
}

TEST(GetErrorMsg, as_the_first_call_sets_the_last_error_by_initialising) {
    G_LastError = unrelated_code;
    int length = 0;
    EXPECT_EQ(GetErrorMsg(1, nullptr, &length), 0);
    EXPECT_EQ(G_LastError, 0);
    Finalize();
    install::close_entirely();
    install::remove_token_library();
    EXPECT_EQ(GetErrorMsg(1, nullptr, &length), 0);
    EXPECT_EQ(G_LastError, -101);
}

TEST(GetErrorMsg, without_a_length_is_minus_401) {
    CanaryBuffer buffer(20);
    EXPECT_EQ(GetErrorMsg(1, buffer.data(), nullptr), -401);
    EXPECT_EQ(G_LastError, -401);
    EXPECT_TRUE(buffer.untouched());
    G_LastError = 0;
    EXPECT_EQ(GetErrorMsg(1, nullptr, nullptr), -401);
    EXPECT_EQ(G_LastError, -401);
    EXPECT_TRUE(g_initFlag) << "the library is initialised before the arguments are checked";
    EXPECT_EQ(trace(), Lines{});
}

TEST(GetErrorMsg, takes_a_null_message_for_an_empty_text) {
    recorder().on("X_ErrorConvert_UOS").null_message();
    CanaryBuffer buffer(5);
    int length = 1;
    EXPECT_EQ(GetErrorMsg(1, buffer.data(), &length), 0);
    EXPECT_EQ(length, 1);
    EXPECT_TRUE(buffer.holds_only(std::string(1, '\0')));
    length = 0;
    EXPECT_EQ(GetErrorMsg(1, buffer.data(), &length), -404);
    EXPECT_EQ(length, 1);
}

TEST(GetErrorMsg, needs_one_byte_for_an_empty_text) {
    CanaryBuffer buffer(5);
    int length = 0;
    EXPECT_EQ(GetErrorMsg(1, buffer.data(), &length), -404);
    EXPECT_EQ(length, 1);
    EXPECT_TRUE(buffer.untouched());
    EXPECT_EQ(GetErrorMsg(1, buffer.data(), &length), 0);
    EXPECT_TRUE(buffer.holds_only(std::string(1, '\0')));
}

TEST(GetErrorMsg, copies_a_text_of_megabytes) {
    const std::string huge(3000000, 'm');
    recorder().on("X_ErrorConvert_UOS").message(huge);
    CanaryBuffer buffer(3000001);
    int length = 3000001;
    EXPECT_EQ(GetErrorMsg(1, buffer.data(), &length), 0);
    EXPECT_TRUE(buffer.holds_only(huge + '\0'));
    EXPECT_EQ(length, 3000001);
}

TEST(GetErrorMsg, lets_the_tokens_exception_pass) {
    recorder().on("X_ErrorConvert_UOS").does([](const auto&) { throw std::runtime_error("x"); });
    CanaryBuffer buffer(20);
    int length = 20;
    EXPECT_THROW(GetErrorMsg(1, buffer.data(), &length), std::runtime_error);
    EXPECT_TRUE(buffer.untouched());
}

#if !KESTA_SANITIZED
// A sanitizer's malloc does not fail.
TEST(GetErrorMsg, without_memory_throws_and_leaves_the_outputs) {
    Initialize();
    recorder().on("X_ErrorConvert_UOS").message(message);
    CanaryBuffer buffer(20);
    int length = 20;
    const FailingAllocation failing(1);
    EXPECT_EQ(code_thrown_by([&] { GetErrorMsg(1, buffer.data(), &length); }), out_of_memory);
    EXPECT_TRUE(buffer.untouched());
    EXPECT_EQ(length, 20);
}
#endif

TEST(GetErrorMsg, leaks_nothing) {
    recorder().on("X_ErrorConvert_UOS").message(std::string(100, 'm'));
    CanaryBuffer buffer(200);
    expect_no_leak([&buffer] {
        int length = 200;
        GetErrorMsg(1, buffer.data(), &length);
        length = 5;
        GetErrorMsg(1, buffer.data(), &length);
    });
}
