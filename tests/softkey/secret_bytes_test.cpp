// Secrets lie on the secure heap, and nothing of them stays.
#include "softkey/crypto/secret_bytes.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <cstdlib>

#include "crypto_support.h"
#include "openssl_memory.h"
#include "softkey/crypto/rsa_key.h"
#include "softkey/pin/secret_text.h"

using namespace softkey;

namespace {

// Each in a process that has done nothing else: who comes first sees to the secure heap.
void ExpectSecure(void (*work)()) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            if (CRYPTO_secure_malloc_initialized() != 0) std::_Exit(3);
            work();
            std::_Exit(CRYPTO_secure_malloc_initialized() != 0 ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}
TEST(SecureHeap, holds_secret_bytes) {
    ExpectSecure([] {
        const SecretBytes bytes(1);
        if (CRYPTO_secure_allocated(bytes.data()) == 0) std::_Exit(2);
    });
}
TEST(SecureHeap, holds_the_numbers_of_a_new_rsa_pair) {
    ExpectSecure([] { GenerateRsaPair(512); });
}
TEST(SecureHeap, of_the_client_is_kept) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            CRYPTO_secure_malloc_init(65536, 16);
            PrepareSecureHeap();
            const SecretBytes most(32768);
            std::_Exit(CodeOf([] { SecretBytes more(65536); }) == kNoMemory ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}
TEST(SecureHeap, has_room_for_a_hundred_pairs_and_gives_back_what_it_held) {
    ExpectSecure([] {
        const SecretBytes first(1);
        const std::size_t used = CRYPTO_secure_used();
        if (used != 32) std::_Exit(4);
        {
            const SecretBytes large(131072);
            if (CRYPTO_secure_used() != used + 131072) std::_Exit(5);
        }
        if (CRYPTO_secure_used() != used) std::_Exit(6);
        if (CodeOf([] { SecretBytes more(262144); }) != kNoMemory) std::_Exit(7);
    });
}

// Another thread may be inside while the process ends.
TEST(SecureHeap, comes_with_an_openssl_that_is_not_taken_down_at_the_end) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            const SecretBytes bytes(1);
            EVP_MAC_free(EVP_MAC_fetch(nullptr, "HMAC", nullptr));
            OPENSSL_atexit([] { std::_Exit(9); });
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
}
TEST(SecureHeap, is_refused_when_openssl_has_no_memory_to_start) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    for (const long failing : {1, 5, 40}) {
        EXPECT_EXIT(
            {
                g_memory.failing = failing;
                const int code = CodeOf([] { PrepareSecureHeap(); });
                g_memory.failing = 0;
                std::_Exit(code == kCryptoFailed || code == kNoMemory ? 0 : 1);
            },
            testing::ExitedWithCode(0), "")
            << failing;
    }
}

TEST(SecretBytes, hold_what_they_are_given) {
    const Bytes bytes{1, 2, 3};
    SecretBytes secret{bytes.data(), bytes.size()};
    EXPECT_EQ(ToBytes(secret), bytes);
    secret.Shrink(2);
    EXPECT_EQ(ToBytes(secret), (Bytes{1, 2}));
    SecretBytes other(1);
    other = std::move(secret);
    EXPECT_EQ(ToBytes(other), (Bytes{1, 2}));
    EXPECT_EQ(ToBytes(SecretBytes(2)), (Bytes{0, 0}));
    EXPECT_EQ(SecretBytes(0).size(), 0U);
    EXPECT_NE(SecretBytes(0).data(), nullptr);
}

TEST(SecretText, holds_256_bytes_and_no_more) {
    SecretText text;
    EXPECT_TRUE(text.Empty());
    EXPECT_TRUE(text.Assign(std::string(256, 'x')));
    EXPECT_EQ(text.Size(), 256U);
    EXPECT_EQ(text.CStr()[256], '\0');
    EXPECT_FALSE(text.Append("y", 1));
    EXPECT_EQ(text.View(), std::string(256, 'x'));
    EXPECT_FALSE(text.Assign(std::string(257, 'y')));
    EXPECT_TRUE(text.Empty());
    EXPECT_EQ(text.View(), "");
}

TEST(SecretText, wipes_what_it_held) {
    SecretText text;
    ASSERT_TRUE(text.Assign(std::string(256, 'x')));
    text.Clear();
    EXPECT_EQ(std::string(text.CStr(), 257), std::string(257, '\0'));
    ASSERT_TRUE(text.Assign("ab"));
    ASSERT_TRUE(text.Append("cd", 2));
    EXPECT_STREQ(text.CStr(), "abcd");
    text.DropLast('c');
    EXPECT_EQ(text.View(), "abcd");
    text.DropLast('d');
    EXPECT_EQ(text.View(), "abc");
    EXPECT_EQ(text.CStr()[3], '\0');
    text.Clear();
    text.DropLast('c');
    EXPECT_TRUE(text.Empty());
}

}  // namespace
