// GetLabel: the key's label out of an internal buffer of 512 bytes.
#include "api_test.h"
#include "lgn_exception.h"
#include "sanitized.h"

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
