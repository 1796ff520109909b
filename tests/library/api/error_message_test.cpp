// GetErrorMsg: the token library's message for a code.
#include <climits>
#include <stdexcept>

#include "api_test.h"
#include "lgn_exception.h"

namespace {

const std::string message = "no key";  // 6 characters

}  // namespace

TEST(GetErrorMsg, copies_the_tokens_text_with_its_NUL) {
    TheRecorder().On("X_ErrorConvert_UOS").Message(message);
    CanaryBuffer buffer(20);
    int length = 20;
    EXPECT_EQ(GetErrorMsg(0x6A82, buffer.data(), &length), 0);
    EXPECT_TRUE(buffer.HoldsOnly(message + '\0'));
    EXPECT_EQ(length, 7);
    EXPECT_EQ(Trace(), (Lines{"X_ErrorConvert_UOS(27266)"}));
    EXPECT_FALSE(LogExists());
}

TEST(GetErrorMsg, passes_negative_codes_as_signed_numbers) {
    CanaryBuffer buffer(20);
    for (const int code : {-101, -404, INT_MIN, INT_MAX, 0}) {
        int length = 20;
        EXPECT_EQ(GetErrorMsg(code, buffer.data(), &length), 0);
    }
    EXPECT_EQ(Trace(), (Lines{"X_ErrorConvert_UOS(-101)", "X_ErrorConvert_UOS(-404)",
                              "X_ErrorConvert_UOS(-2147483648)", "X_ErrorConvert_UOS(2147483647)",
                              "X_ErrorConvert_UOS(0)"}));
}

TEST(GetErrorMsg, accepts_a_capacity_one_above_the_text) {
    TheRecorder().On("X_ErrorConvert_UOS").Message(message);
    CanaryBuffer buffer(7);
    int length = 7;
    EXPECT_EQ(GetErrorMsg(1, buffer.data(), &length), 0);
    EXPECT_EQ(length, 7);
    EXPECT_TRUE(buffer.HoldsOnly(message + '\0'));
}

TEST(GetErrorMsg, refuses_a_capacity_equal_to_the_text) {
    TheRecorder().On("X_ErrorConvert_UOS").Message(message);
    CanaryBuffer buffer(6);
    int length = 6;
    EXPECT_EQ(GetErrorMsg(1, buffer.data(), &length), -404);
    EXPECT_EQ(length, 7);
    EXPECT_EQ(G_LastError, -404);
    EXPECT_TRUE(buffer.Untouched());
}

TEST(GetErrorMsg, compares_a_negative_capacity_as_signed) {
    TheRecorder().On("X_ErrorConvert_UOS").Message(message);
    CanaryBuffer buffer(20);
    int length = -1;
    EXPECT_EQ(GetErrorMsg(1, buffer.data(), &length), -404);
    EXPECT_EQ(length, 7);
    EXPECT_TRUE(buffer.Untouched());
}

TEST(GetErrorMsg, answers_a_probe_with_200_for_every_code_without_asking) {
    TheRecorder().On("X_ErrorConvert_UOS").Message(std::string(1000, 'm'));
    for (const int code : {0, 1, -101, -404, INT_MIN, INT_MAX}) {
        int length = -5;
        EXPECT_EQ(GetErrorMsg(code, nullptr, &length), 0);
        EXPECT_EQ(length, 200);
    }
    EXPECT_EQ(Trace(), Lines{});
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
    install::CloseEntirely();
    install::RemoveTokenLibrary();
    EXPECT_EQ(GetErrorMsg(1, nullptr, &length), 0);
    EXPECT_EQ(G_LastError, -101);
}

TEST(GetErrorMsg, without_a_length_is_minus_401) {
    CanaryBuffer buffer(20);
    EXPECT_EQ(GetErrorMsg(1, buffer.data(), nullptr), -401);
    EXPECT_EQ(G_LastError, -401);
    EXPECT_TRUE(buffer.Untouched());
    G_LastError = 0;
    EXPECT_EQ(GetErrorMsg(1, nullptr, nullptr), -401);
    EXPECT_EQ(G_LastError, -401);
    EXPECT_TRUE(g_initFlag) << "the library is initialised before the arguments are checked";
    EXPECT_EQ(Trace(), Lines{});
}

TEST(GetErrorMsg, takes_a_null_message_for_an_empty_text) {
    TheRecorder().On("X_ErrorConvert_UOS").NullMessage();
    CanaryBuffer buffer(5);
    int length = 1;
    EXPECT_EQ(GetErrorMsg(1, buffer.data(), &length), 0);
    EXPECT_EQ(length, 1);
    EXPECT_TRUE(buffer.HoldsOnly(std::string(1, '\0')));
    length = 0;
    EXPECT_EQ(GetErrorMsg(1, buffer.data(), &length), -404);
    EXPECT_EQ(length, 1);
}

TEST(GetErrorMsg, needs_one_byte_for_an_empty_text) {
    CanaryBuffer buffer(5);
    int length = 0;
    EXPECT_EQ(GetErrorMsg(1, buffer.data(), &length), -404);
    EXPECT_EQ(length, 1);
    EXPECT_TRUE(buffer.Untouched());
    EXPECT_EQ(GetErrorMsg(1, buffer.data(), &length), 0);
    EXPECT_TRUE(buffer.HoldsOnly(std::string(1, '\0')));
}

TEST(GetErrorMsg, copies_a_text_of_megabytes) {
    const std::string huge(3000000, 'm');
    TheRecorder().On("X_ErrorConvert_UOS").Message(huge);
    CanaryBuffer buffer(3000001);
    int length = 3000001;
    EXPECT_EQ(GetErrorMsg(1, buffer.data(), &length), 0);
    EXPECT_TRUE(buffer.HoldsOnly(huge + '\0'));
    EXPECT_EQ(length, 3000001);
}

TEST(GetErrorMsg, lets_the_tokens_exception_pass) {
    TheRecorder().On("X_ErrorConvert_UOS").Does([](const auto&) { throw std::runtime_error("x"); });
    CanaryBuffer buffer(20);
    int length = 20;
    EXPECT_THROW(GetErrorMsg(1, buffer.data(), &length), std::runtime_error);
    EXPECT_TRUE(buffer.Untouched());
}

#ifndef KESTA_SANITIZED
// A sanitizer's malloc does not fail.
TEST(GetErrorMsg, without_memory_throws_and_leaves_the_outputs) {
    Initialize();
    TheRecorder().On("X_ErrorConvert_UOS").Message(message);
    CanaryBuffer buffer(20);
    int length = 20;
    const FailingAllocation failing(1);
    EXPECT_EQ(CodeThrownBy([&] { GetErrorMsg(1, buffer.data(), &length); }), kOutOfMemory);
    EXPECT_TRUE(buffer.Untouched());
    EXPECT_EQ(length, 20);
}
#endif

TEST(GetErrorMsg, leaks_nothing) {
    TheRecorder().On("X_ErrorConvert_UOS").Message(std::string(100, 'm'));
    CanaryBuffer buffer(200);
    ExpectNoLeak([&buffer] {
        int length = 200;
        GetErrorMsg(1, buffer.data(), &length);
        length = 5;
        GetErrorMsg(1, buffer.data(), &length);
    });
}
