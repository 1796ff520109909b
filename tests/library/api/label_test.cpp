// GetLabel: the key's label out of an internal buffer of 512 bytes.
#include "api_test.h"
#include "lgn_exception.h"

TEST(GetLabel, hands_a_copy_of_the_serial_number_on_with_a_zeroed_buffer) {
    const char* const serial = "A1";
    int length = 0;
    EXPECT_EQ(GetLabel(serial, nullptr, &length), 0);
    EXPECT_EQ(Trace(), (Lines{"GetLabel(\"A1\", zero[512])"}));
    EXPECT_NE(TheRecorder().Only("GetLabel").At(0).address, serial);
}

TEST(GetLabel, lets_the_token_write_into_its_copy_of_the_serial_number) {
    char serial[] = "A1";
    TheRecorder().On("GetLabel").Writes(0, "zz");
    int length = 0;
    EXPECT_EQ(GetLabel(serial, nullptr, &length), 0);
    EXPECT_STREQ(serial, "A1");
    EXPECT_EQ(GetLabel(serial, nullptr, &length), 0);
    EXPECT_EQ(TheRecorder().Calls("GetLabel").back().Bytes(0), "A1");
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
    EXPECT_TRUE(buffer.Untouched());
    EXPECT_EQ(Trace(), Lines{});
    EXPECT_TRUE(g_initFlag);
}

TEST(GetLabel, of_an_empty_serial_number_is_minus_401_without_asking) {
    CanaryBuffer buffer(8);
    int length = 8;
    EXPECT_EQ(GetLabel("", buffer.data(), &length), -401);
    EXPECT_EQ(G_LastError, -401);
    EXPECT_EQ(GetLabel("", nullptr, &length), -401);
    EXPECT_EQ(length, 8);
    EXPECT_TRUE(buffer.Untouched());
    EXPECT_EQ(Trace(), Lines{});
}

TEST(GetLabel, leaks_nothing) {
    int length = 0;
    ExpectNoLeak([&length] {
        GetLabel("A1", nullptr, &length);
        GetLabel("", nullptr, &length);
    });
}

#ifndef KESTA_SANITIZED
TEST(GetLabel, lets_the_exception_of_an_exhausted_memory_pass) {
    Initialize();
    int length = 77;
    const FailingAllocation failing(1);
    EXPECT_EQ(CodeThrownBy([&length] { GetLabel("A1", nullptr, &length); }), kOutOfMemory);
    EXPECT_TRUE(failing.Happened());
    EXPECT_EQ(length, 77);
    EXPECT_EQ(Trace(), Lines{});
}
#endif
