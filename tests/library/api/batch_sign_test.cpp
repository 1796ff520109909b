// Batch_Sign: thirteen arguments handed on, and an estimate of what comes back.
#include "api_test.h"

namespace {

struct BatchSign {
    unsigned flags = 0;
    void* parameter2 = nullptr;
    const char* data = nullptr;
    void* parameter6 = nullptr;
    void* parameter7 = nullptr;
    const char* list = nullptr;
    char* signatures = nullptr;
    unsigned* length = nullptr;

    int operator()() const {
        return Batch_Sign(flags, parameter2, 3, 4, data, parameter6, parameter7, 8, 9, list, 11,
                          signatures, length);
    }
};

unsigned Probe(const char* data, const char* list) {
    unsigned length = unrelated_code;
    BatchSign call;
    call.data = data;
    call.list = list;
    call.length = &length;
    G_LastError = unrelated_code;
    EXPECT_EQ(call(), 0);
    EXPECT_EQ(G_LastError, 0);
    EXPECT_EQ(Trace(), Lines{});
    return length;
}

std::string Repeated(const std::string& text, int times) {
    std::string joined;
    for (int round = 0; round < times; ++round) joined += text;
    return joined;
}

}  // namespace

TEST(Batch_Sign, hands_all_thirteen_arguments_on_in_order) {
    int two = 0, six = 0, seven = 0;
    CanaryBuffer signatures(8);
    unsigned length = 8;
    const char* const data = "data";
    const char* const list = "a||b";
    EXPECT_EQ(Batch_Sign(0xFFFFFFFF, &two, -3, -2147483647 - 1, data, &six, &seven, -8, 9, list,
                         -11, signatures.data(), &length),
              0);
    EXPECT_EQ(Trace(), (Lines{"Batch_Sign(4294967295, pointer, -3, -2147483648, \"data\", pointer, "
                              "pointer, -8, 9, \"a||b\", -11, pointer, &8)"}));
    const recording::Call call = TheRecorder().Only("Batch_Sign");
    EXPECT_EQ(call.At(1).address, &two);
    EXPECT_EQ(call.At(4).address, data);
    EXPECT_EQ(call.At(5).address, &six);
    EXPECT_EQ(call.At(6).address, &seven);
    EXPECT_EQ(call.At(9).address, list);
    EXPECT_EQ(call.At(11).address, signatures.data());
    EXPECT_EQ(call.At(12).address, &length);
    EXPECT_TRUE(signatures.Untouched());
}

TEST(Batch_Sign, lets_the_token_write_signatures_and_length_whatever_the_capacity) {
    TheRecorder().On("Batch_Sign").Writes(11, "S1||S2").WritesNumber(12, 0xFFFFFFFF);
    CanaryBuffer signatures(8);
    unsigned length = 1;
    BatchSign call;
    call.signatures = signatures.data();
    call.length = &length;
    EXPECT_EQ(call(), 0);
    EXPECT_TRUE(signatures.HoldsOnly("S1||S2"));
    EXPECT_EQ(length, 0xFFFFFFFFU);
}

// ---- What is required ---------------------------------------------------------------------------

TEST(Batch_Sign, without_a_length_pointer_is_minus_401) {
    CanaryBuffer signatures(8);
    BatchSign call;
    EXPECT_EQ(call(), -401);
    call.signatures = signatures.data();
    G_LastError = 0;
    EXPECT_EQ(call(), -401);
    EXPECT_EQ(G_LastError, -401);
    EXPECT_TRUE(signatures.Untouched());
    EXPECT_EQ(Trace(), Lines{});
    EXPECT_TRUE(g_initFlag);
}

TEST(Batch_Sign, with_bit_0_clear_requires_nothing_more) {
    CanaryBuffer signatures(8);
    unsigned length = 8;
    BatchSign call;
    call.flags = 0xFFFFFFFE;
    call.signatures = signatures.data();
    call.length = &length;
    EXPECT_EQ(call(), 0);
    EXPECT_EQ(Trace(), (Lines{"Batch_Sign(4294967294, null, 3, 4, null, null, null, 8, 9, null, "
                              "11, pointer, &8)"}));
}

TEST(Batch_Sign, with_bit_0_set_requires_its_second_fifth_and_sixth_argument) {
    int object = 0;
    CanaryBuffer signatures(8);
    unsigned length = 8;
    for (const unsigned flags : {1U, 3U, 0xFFFFFFFFU}) {
        for (unsigned given = 0; given < 8; ++given) {
            BatchSign call;
            call.flags = flags;
            call.parameter2 = (given & 1) ? &object : nullptr;
            call.data = (given & 2) ? "data" : nullptr;
            call.parameter6 = (given & 4) ? &object : nullptr;
            call.signatures = signatures.data();
            call.length = &length;
            TheRecorder().Forget();
            const int expected = given == 7 ? 0 : -401;
            EXPECT_EQ(call(), expected) << flags << ' ' << given;
            EXPECT_EQ(G_LastError, expected);
            EXPECT_EQ(Trace().size(), given == 7 ? 1U : 0U);
        }
    }
    EXPECT_EQ(length, 8U);
}

TEST(Batch_Sign, answers_a_probe_before_it_looks_at_bit_0) {
    unsigned length = 0;
    BatchSign call;
    call.flags = 1;
    call.length = &length;
    EXPECT_EQ(call(), 0);
    EXPECT_EQ(length, 0U);
    EXPECT_EQ(Trace(), Lines{});
}

// ---- The estimate -------------------------------------------------------------------------------

TEST(Batch_Sign, estimates_data_and_two_separators_as_12322) {
    EXPECT_EQ(Probe("abc", "x||y||z"), 12322U);
}

TEST(Batch_Sign, estimates_data_alone_with_2048_to_spare) {
    EXPECT_EQ(Probe("abc", nullptr), 4102U);
    EXPECT_EQ(Probe("", nullptr), 4096U);
}

TEST(Batch_Sign, estimates_nothing_without_data) {
    EXPECT_EQ(Probe(nullptr, nullptr), 0U);
    EXPECT_EQ(Probe(nullptr, "one text"), 0U);
}

TEST(Batch_Sign, estimates_nothing_for_a_list_without_a_separator) {
    EXPECT_EQ(Probe("abc", "x|y"), 4102U);
    EXPECT_EQ(Probe("abc", ""), 4102U);
}

TEST(Batch_Sign, counts_separators_that_do_not_overlap) {
    EXPECT_EQ(Probe(nullptr, "||"), 2U * 2050);
    EXPECT_EQ(Probe(nullptr, "|||"), 2U * 2051);
    EXPECT_EQ(Probe(nullptr, "||||"), 2U * 2052 * 2);
    EXPECT_EQ(Probe(nullptr, "a||b"), 2U * 2052);
}

// 100000 separators of a list of 200000 bars: 2 x 202048 x 100000 modulo 2^32.
TEST(Batch_Sign, counts_the_estimate_in_32_bits) {
    EXPECT_EQ(Probe(nullptr, Repeated("||", 100000).c_str()), 1754894336U);
}
