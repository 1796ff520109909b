// GenerateCertRequest when the token refuses, throws, or memory runs out.
#include <stdexcept>

#include "api_test.h"
#include "lgn_exception.h"

namespace {

const char* const oneGroup = "CertType(1)";
const char* const twoGroups = "CertType(1)|CertType(2)";

int Probe(const char* request, int* length) {
    return GenerateCertRequest("A1", request, nullptr, length);
}

// What a call with a buffer gets: "cached" texts come without a call of the token.
std::string Fetched(const char* request) {
    TheRecorder().Forget();
    CanaryBuffer buffer(100, '\0');
    int length = 99;
    const int result = GenerateCertRequest("A1", request, buffer.data(), &length);
    const std::string origin = TheRecorder().Calls().empty() ? "cached " : "fresh ";
    return origin + (result ? std::to_string(result) : buffer.Text());
}

}  // namespace

TEST(FailedVerification, ends_the_call_with_its_code) {
    TheRecorder().On("VerifyPIN").Returns(0x63C2);
    int length = 77;
    EXPECT_EQ(Probe(oneGroup, &length), 0x63C2);
    EXPECT_EQ(G_LastError, 0x63C2);
    EXPECT_EQ(length, 77);
    EXPECT_EQ(TheRecorder().Names(), (Lines{"VerifyPIN"}));
}

TEST(FailedVerification, of_the_second_group_discards_the_first_request) {
    TheRecorder().On("VerifyPIN", 2).Returns(-5);
    TheRecorder().On("GMCreatePKCS10").Request("first");
    CanaryBuffer buffer(30);
    int length = 30;
    EXPECT_EQ(GenerateCertRequest("A1", twoGroups, buffer.data(), &length), -5);
    EXPECT_EQ(TheRecorder().Names(), (Lines{"VerifyPIN", "GMCreatePKCS10", "VerifyPIN"}));
    EXPECT_TRUE(buffer.Untouched());
    EXPECT_EQ(length, 30);
    EXPECT_EQ(TheRecorder().LiveRequests(), 0);
}

TEST(FailedCreation, ends_the_call_with_its_code_and_releases_a_returned_text) {
    TheRecorder().On("GMCreatePKCS10").Request("half").Returns(static_cast<int>(0xA0000001));
    CanaryBuffer buffer(30);
    int length = 30;
    EXPECT_EQ(GenerateCertRequest("A1", oneGroup, buffer.data(), &length),
              static_cast<int>(0xA0000001));
    EXPECT_EQ(G_LastError, static_cast<int>(0xA0000001));
    EXPECT_TRUE(buffer.Untouched());
    EXPECT_EQ(length, 30);
    EXPECT_EQ(TheRecorder().LiveRequests(), 0);
}

TEST(FailedCreation, without_a_returned_text_releases_nothing) {
    TheRecorder().On("GMCreatePKCS10", 2).Returns(9);
    int length = 77;
    EXPECT_EQ(Probe(twoGroups, &length), 9);
    EXPECT_EQ(length, 77);
}

// ---- Exceptions ------------------------------------------------------------------------------

TEST(TokensException, passes_out_of_the_verification) {
    TheRecorder().On("VerifyPIN").Does([](const auto&) { throw std::runtime_error("x"); });
    int length = 77;
    EXPECT_THROW(Probe(oneGroup, &length), std::runtime_error);
    EXPECT_EQ(length, 77);
    ExpectNoLeak([&length] { EXPECT_THROW(Probe(oneGroup, &length), std::runtime_error); });
}

TEST(TokensException, passes_out_of_the_creation_and_leaves_no_text_behind) {
    TheRecorder().On("GMCreatePKCS10").Request("half").Does([](const auto&) {
        throw std::runtime_error("x");
    });
    int length = 77;
    EXPECT_THROW(Probe(oneGroup, &length), std::runtime_error);
    EXPECT_EQ(TheRecorder().LiveRequests(), 0);
    ExpectNoLeak([&length] { EXPECT_THROW(Probe(oneGroup, &length), std::runtime_error); });
}

TEST(TokensException, in_the_second_group_leaves_no_text_behind) {
    TheRecorder().On("GMCreatePKCS10").Request("first");
    TheRecorder().On("VerifyPIN", 2).Does([](const auto&) { throw 5; });
    int length = 77;
    EXPECT_THROW(Probe(twoGroups, &length), int);
    EXPECT_EQ(TheRecorder().LiveRequests(), 0);
    TheRecorder().Forget();
    ExpectNoLeak([&length] { EXPECT_THROW(Probe(twoGroups, &length), int); });
}

TEST(MalformedGroup, behind_a_made_request_leaves_no_text_behind) {
    TheRecorder().On("GMCreatePKCS10").Request("first");
    int length = 77;
    const auto malformed = [&length] { Probe("CertType(1)|CertType", &length); };
    EXPECT_EQ(CodeThrownBy(malformed), 0x80070057U);
    EXPECT_EQ(TheRecorder().LiveRequests(), 0);
    ExpectNoLeak([&malformed] { CodeThrownBy(malformed); });
}

TEST(GenerateCertRequest, leaks_nothing_on_any_way_through_it) {
    TheRecorder().On("GMCreatePKCS10").Request(std::string(100, 'R'));
    CanaryBuffer buffer(300);
    ExpectNoLeak([&buffer] {
        int length = 0;
        Probe(twoGroups, &length);
        Probe(oneGroup, &length);
        length = 5;
        GenerateCertRequest("A1", oneGroup, buffer.data(), &length);
        GenerateCertRequest("A1", oneGroup, buffer.data(), &length);
        length = 5;
        GenerateCertRequest("A1", twoGroups, buffer.data(), &length);
        Probe("Colour(1)", &length);
        Probe("CertType(1)|Colour(1)", &length);
    });
    EXPECT_EQ(TheRecorder().LiveRequests(), 0);
}

// ---- Memory ----------------------------------------------------------------------------------

// Whichever allocation fails, the cache is the old one or the new one, never a mixture.
TEST(MemoryThatRunsOut, in_a_probe_leaves_the_cache_as_it_was) {
    int failures = 0;
    for (int nth = 1; nth < 100; ++nth) {
        int length = 0;
        TheRecorder().On("GMCreatePKCS10").Request("old");
        ASSERT_EQ(Probe(oneGroup, &length), 0);
        TheRecorder().On("GMCreatePKCS10").Request("new");
        bool failed = false;
        {
            const FailingAllocation failing(nth);
            try {
                EXPECT_EQ(Probe(twoGroups, &length), 0);
            } catch (const std::bad_alloc&) {
                failed = true;
            } catch (const LGN::CLgnException& thrown) {
                EXPECT_EQ(static_cast<std::uint32_t>(thrown.code), 0x8007000EU);
                failed = true;
            }
            EXPECT_EQ(failing.Happened(), failed);
        }
        EXPECT_EQ(TheRecorder().LiveRequests(), 0);
        EXPECT_EQ(Fetched(failed ? oneGroup : twoGroups),
                  failed ? "cached old" : "cached new||new");
        if (!failed) break;
        ++failures;
    }
    EXPECT_GE(failures, 3) << "the three texts of the cache are allocated";
}

TEST(MemoryThatRunsOut, in_a_first_probe_leaves_the_cache_empty) {
    TheRecorder().On("GMCreatePKCS10").Request("new");
    Initialize();
    for (int nth = 1; nth < 100; ++nth) {
        int length = 0;
        bool failed = false;
        {
            const FailingAllocation failing(nth);
            try {
                Probe(oneGroup, &length);
            } catch (...) {
                failed = true;
            }
        }
        EXPECT_EQ(Fetched(oneGroup), failed ? "fresh new" : "cached new");
        if (!failed) break;
    }
}

TEST(MemoryThatRunsOut, leaks_nothing) {
    TheRecorder().On("GMCreatePKCS10").Request("new");
    int length = 0;
    ASSERT_EQ(Probe(oneGroup, &length), 0);
    ExpectNoLeak([&length] {
        for (int nth = 1; nth < 6; ++nth) {
            const FailingAllocation failing(nth);
            try {
                Probe(twoGroups, &length);
            } catch (...) {
            }
        }
    });
}
