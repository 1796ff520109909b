// GenerateCertRequest when the token refuses, throws, or memory runs out.
#include <stdexcept>

#include "api_test.h"
#include "lgn_exception.h"

namespace {

const char* const one_group = "CertType(1)";
const char* const two_groups = "CertType(1)|CertType(2)";

int probe(const char* request, int* length) {
    return GenerateCertRequest("A1", request, nullptr, length);
}

// What a call with a buffer gets: "cached" texts come without a call of the token.
std::string fetched(const char* request) {
    recorder().forget();
    CanaryBuffer buffer(100, '\0');
    int length = 99;
    const int result = GenerateCertRequest("A1", request, buffer.data(), &length);
    const std::string origin = recorder().calls().empty() ? "cached " : "fresh ";
    return origin + (result ? std::to_string(result) : buffer.text());
}

}  // namespace

TEST(FailedVerification, ends_the_call_with_its_code) {
    recorder().on("VerifyPIN").returns(0x63C2);
    int length = 77;
    EXPECT_EQ(probe(one_group, &length), 0x63C2);
    EXPECT_EQ(G_LastError, 0x63C2);
    EXPECT_EQ(length, 77);
    EXPECT_EQ(recorder().names(), (Lines{"VerifyPIN"}));
}

TEST(FailedVerification, of_the_second_group_discards_the_first_request) {
    recorder().on("VerifyPIN", 2).returns(-5);
    recorder().on("GMCreatePKCS10").request("first");
    CanaryBuffer buffer(30);
    int length = 30;
    EXPECT_EQ(GenerateCertRequest("A1", two_groups, buffer.data(), &length), -5);
    EXPECT_EQ(recorder().names(), (Lines{"VerifyPIN", "GMCreatePKCS10", "VerifyPIN"}));
    EXPECT_TRUE(buffer.untouched());
    EXPECT_EQ(length, 30);
    EXPECT_EQ(recorder().live_requests(), 0);
}

TEST(FailedCreation, ends_the_call_with_its_code_and_releases_a_returned_text) {
    recorder().on("GMCreatePKCS10").request("half").returns(static_cast<int>(0xA0000001));
    CanaryBuffer buffer(30);
    int length = 30;
    EXPECT_EQ(GenerateCertRequest("A1", one_group, buffer.data(), &length),
              static_cast<int>(0xA0000001));
    EXPECT_EQ(G_LastError, static_cast<int>(0xA0000001));
    EXPECT_TRUE(buffer.untouched());
    EXPECT_EQ(length, 30);
    EXPECT_EQ(recorder().live_requests(), 0);
}

TEST(FailedCreation, without_a_returned_text_releases_nothing) {
    recorder().on("GMCreatePKCS10", 2).returns(9);
    int length = 77;
    EXPECT_EQ(probe(two_groups, &length), 9);
    EXPECT_EQ(length, 77);
}

// ---- Exceptions ------------------------------------------------------------------------------

TEST(TokensException, passes_out_of_the_verification) {
    recorder().on("VerifyPIN").does([](const auto&) { throw std::runtime_error("x"); });
    int length = 77;
    EXPECT_THROW(probe(one_group, &length), std::runtime_error);
    EXPECT_EQ(length, 77);
    expect_no_leak([&length] { EXPECT_THROW(probe(one_group, &length), std::runtime_error); });
}

TEST(TokensException, passes_out_of_the_creation_and_leaves_no_text_behind) {
    recorder().on("GMCreatePKCS10").request("half").does([](const auto&) {
        throw std::runtime_error("x");
    });
    int length = 77;
    EXPECT_THROW(probe(one_group, &length), std::runtime_error);
    EXPECT_EQ(recorder().live_requests(), 0);
    expect_no_leak([&length] { EXPECT_THROW(probe(one_group, &length), std::runtime_error); });
}

TEST(TokensException, in_the_second_group_leaves_no_text_behind) {
    recorder().on("GMCreatePKCS10").request("first");
    recorder().on("VerifyPIN", 2).does([](const auto&) { throw 5; });
    int length = 77;
    EXPECT_THROW(probe(two_groups, &length), int);
    EXPECT_EQ(recorder().live_requests(), 0);
    recorder().forget();
    expect_no_leak([&length] { EXPECT_THROW(probe(two_groups, &length), int); });
}

TEST(MalformedGroup, behind_a_made_request_leaves_no_text_behind) {
    recorder().on("GMCreatePKCS10").request("first");
    int length = 77;
    const auto malformed = [&length] { probe("CertType(1)|CertType", &length); };
    EXPECT_EQ(code_thrown_by(malformed), 0x80070057U);
    EXPECT_EQ(recorder().live_requests(), 0);
    expect_no_leak([&malformed] { code_thrown_by(malformed); });
}

TEST(GenerateCertRequest, leaks_nothing_on_any_way_through_it) {
    recorder().on("GMCreatePKCS10").request(std::string(100, 'R'));
    CanaryBuffer buffer(300);
    expect_no_leak([&buffer] {
        int length = 0;
        probe(two_groups, &length);
        probe(one_group, &length);
        length = 5;
        GenerateCertRequest("A1", one_group, buffer.data(), &length);
        GenerateCertRequest("A1", one_group, buffer.data(), &length);
        length = 5;
        GenerateCertRequest("A1", two_groups, buffer.data(), &length);
        probe("Colour(1)", &length);
        probe("CertType(1)|Colour(1)", &length);
    });
    EXPECT_EQ(recorder().live_requests(), 0);
}

// ---- Memory ----------------------------------------------------------------------------------

// Whichever allocation fails, the cache is the old one or the new one, never a mixture.
TEST(MemoryThatRunsOut, in_a_probe_leaves_the_cache_as_it_was) {
    int failures = 0;
    for (int nth = 1; nth < 100; ++nth) {
        int length = 0;
        recorder().on("GMCreatePKCS10").request("old");
        ASSERT_EQ(probe(one_group, &length), 0);
        recorder().on("GMCreatePKCS10").request("new");
        bool failed = false;
        {
            const FailingAllocation failing(nth);
            try {
                EXPECT_EQ(probe(two_groups, &length), 0);
            } catch (const std::bad_alloc&) {
                failed = true;
            } catch (const LGN::CLgnException& thrown) {
                EXPECT_EQ(static_cast<std::uint32_t>(thrown.code), 0x8007000EU);
                failed = true;
            }
            EXPECT_EQ(failing.happened(), failed);
        }
        EXPECT_EQ(recorder().live_requests(), 0);
        EXPECT_EQ(fetched(failed ? one_group : two_groups),
                  failed ? "cached old" : "cached new||new");
        if (!failed) break;
        ++failures;
    }
    EXPECT_GE(failures, 3) << "the three texts of the cache are allocated";
}

TEST(MemoryThatRunsOut, in_a_first_probe_leaves_the_cache_empty) {
    recorder().on("GMCreatePKCS10").request("new");
    Initialize();
    for (int nth = 1; nth < 100; ++nth) {
        int length = 0;
        bool failed = false;
        {
            const FailingAllocation failing(nth);
            try {
                probe(one_group, &length);
            } catch (...) {
                failed = true;
            }
        }
        EXPECT_EQ(fetched(one_group), failed ? "fresh new" : "cached new");
        if (!failed) break;
    }
}

TEST(MemoryThatRunsOut, leaks_nothing) {
    recorder().on("GMCreatePKCS10").request("new");
    int length = 0;
    ASSERT_EQ(probe(one_group, &length), 0);
    expect_no_leak([&length] {
        for (int nth = 1; nth < 6; ++nth) {
            const FailingAllocation failing(nth);
            try {
                probe(two_groups, &length);
            } catch (...) {
            }
        }
    });
}
