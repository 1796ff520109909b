#include "softkey/crypto/vault.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "crypto_support.h"
#include "softkey/codes.h"
#include "temporary_folder.h"

namespace {

using softkey::Bytes;
using softkey::MasterKey;

constexpr softkey::PinCost kCheap{1024, 8, 1};

Bytes BytesOf(const MasterKey& key) {
    return {key.data(), key.data() + MasterKey::kSize};
}

// Whether all of them differ from each other and from zeroes.
bool AreRandom(const std::vector<Bytes>& all) {
    const std::set<Bytes> different(all.begin(), all.end());
    return different.size() == all.size() && different.count(Bytes(all[0].size())) == 0;
}

TEST(Vault, draws_each_key_anew) {
    EXPECT_TRUE(AreRandom({BytesOf(MasterKey::Random()), BytesOf(MasterKey::Random())}));
}

// The same PIN and the same key twice: nothing shows that they are.
TEST(Vault, seals_differently_each_time) {
    const MasterKey key = MasterKey::Random();
    const softkey::PinSeal one = SealMaster(key, "123456", "A", kCheap);
    const softkey::PinSeal other = SealMaster(key, "123456", "A", kCheap);
    EXPECT_TRUE(AreRandom({one.salt, other.salt}));
    EXPECT_NE(one.sealed, other.sealed);
    EXPECT_EQ(BytesOf(OpenMaster(one, "123456", "A").value()), BytesOf(key));
    EXPECT_FALSE(OpenMaster(one, "123457", "A"));
    EXPECT_FALSE(OpenMaster(one, "123456", "B"));
}

TEST(Vault, wraps_differently_each_time_and_opens_what_it_wrapped_alone) {
    const MasterKey key = MasterKey::Random();
    const Bytes secret(32, 7);
    const Bytes one = Wrap(key, secret.data(), secret.size(), "A");
    const Bytes other = Wrap(key, secret.data(), secret.size(), "A");
    constexpr std::ptrdiff_t kNonce = 12;
    EXPECT_TRUE(
        AreRandom({{one.begin(), one.begin() + kNonce}, {other.begin(), other.begin() + kNonce}}));
    const softkey::SecretBytes opened = Unwrap(key, one, "A");
    EXPECT_EQ(Bytes(opened.data(), opened.data() + opened.size()), secret);
    EXPECT_THROW(Unwrap(key, one, "B"), softkey::Failure);
    EXPECT_THROW(Unwrap(MasterKey::Random(), one, "A"), softkey::Failure);
    for (std::size_t i = 0; i < one.size(); ++i) {
        Bytes changed = one;
        changed[i] ^= 1;
        EXPECT_THROW(Unwrap(key, changed, "A"), softkey::Failure) << i;
    }
}

TEST(Vault, takes_nothing_that_is_too_short_for_what_was_wrapped) {
    EXPECT_FALSE(softkey::IsWrapped(Bytes(28)));
    EXPECT_TRUE(softkey::IsWrapped(Bytes(29)));
    EXPECT_EQ(FailureOf([] { Unwrap(MasterKey::Random(), Bytes(28), "A"); }),
              std::to_string(softkey::kStateDamaged) + " a wrapped private key");
}

TEST(Vault, opens_seals_of_both_derivations) {
    const MasterKey key = MasterKey::Random();
    softkey::PinSeal seal = SealMaster(key, "123456", "A", kCheap);
    EXPECT_EQ(seal.kdf, softkey::Kdf::kScrypt);
    EXPECT_EQ(seal.salt.size(), 16U);
    EXPECT_EQ(softkey::CostOf(seal).n, 1024);
    EXPECT_EQ(softkey::CostOf(seal).parallel, 1);
    MasterKey derived;
    ASSERT_EQ(PKCS5_PBKDF2_HMAC("123456", 6, seal.salt.data(), 16, 1000, EVP_sha256(), 32,
                                derived.data()),
              1);
    seal.kdf = softkey::Kdf::kPbkdf2;
    seal.cost = 1000;
    seal.sealed = Wrap(derived, key.data(), MasterKey::kSize, "A");
    EXPECT_EQ(BytesOf(OpenMaster(seal, "123456", "A").value()), BytesOf(key));
    EXPECT_FALSE(OpenMaster(seal, "123457", "A"));
    EXPECT_EQ(softkey::CostOf(seal).n, 32768) << "that of new seals";
    seal.salt.pop_back();
    EXPECT_EQ(CodeOf([&] { OpenMaster(seal, "123456", "A"); }), softkey::kStateDamaged);
}

// What OpenSSL takes without being told a limit is less than new seals need.
TEST(Vault, gives_a_derivation_memory_up_to_a_bound) {
    const softkey::PinCost usual;
    EXPECT_EQ(usual.n * usual.block * usual.parallel, 32768 * 8 * 2);
    const MasterKey key = MasterKey::Random();
    softkey::PinSeal seal = SealMaster(key, "123456", "A", {usual.n, usual.block, 1});
    EXPECT_EQ(seal.cost, usual.n);
    EXPECT_EQ(seal.block, usual.block);
    EXPECT_EQ(seal.parallel, 1);
    seal.cost = 1048576;
    EXPECT_EQ(CodeOf([&] { OpenMaster(seal, "123456", "A"); }), softkey::kCryptoFailed);
}

TEST(Vault, knows_seals_that_nobody_made) {
    using softkey::Kdf;
    struct Row {
        Kdf kdf;
        std::int64_t cost, block, parallel;
        bool sound;
    };
    constexpr Row kRows[] = {
        {Kdf::kPbkdf2, 1, 0, 0, true},           {Kdf::kPbkdf2, 0, 0, 0, false},
        {Kdf::kPbkdf2, 10000000, 0, 0, true},    {Kdf::kPbkdf2, 10000001, 0, 0, false},
        {Kdf::kScrypt, 2, 1, 1, true},           {Kdf::kScrypt, 1, 1, 1, false},
        {Kdf::kScrypt, 0, 1, 1, false},          {Kdf::kScrypt, -1024, 1, 1, false},
        {Kdf::kScrypt, 3, 1, 1, false},          {Kdf::kScrypt, 1025, 1, 1, false},
        {Kdf::kScrypt, 1048576, 64, 64, true},   {Kdf::kScrypt, 2097152, 1, 1, false},
        {Kdf::kScrypt, 1024, 0, 1, false},       {Kdf::kScrypt, 1024, 65, 1, false},
        {Kdf::kScrypt, 1024, 1, 0, false},       {Kdf::kScrypt, 1024, 1, 65, false},
        {static_cast<Kdf>(7), 1024, 1, 1, false}};
    softkey::PinSeal seal;
    seal.salt.resize(16);
    seal.sealed.resize(60);
    for (const Row& row : kRows) {
        seal.kdf = row.kdf;
        seal.cost = row.cost;
        seal.block = row.block;
        seal.parallel = row.parallel;
        EXPECT_EQ(IsSound(seal), row.sound) << row.cost << " " << row.block << " " << row.parallel;
    }
    seal = SealMaster(MasterKey::Random(), "123456", "A", kCheap);
    EXPECT_TRUE(IsSound(seal));
    for (Bytes* const part : {&seal.salt, &seal.sealed}) {
        part->push_back(0);
        EXPECT_FALSE(IsSound(seal));
        part->resize(part->size() - 2);
        EXPECT_FALSE(IsSound(seal));
        part->push_back(0);
    }
}

TEST(PinCost, is_what_the_environment_says) {
    const auto cost = [](const char* value) {
        const ScopedVariable variable("KESTA_SOFTKEY_PIN_COST", value);
        return FailureOf([] { softkey::CostOfNewKeys(); }) == "done" ? softkey::CostOfNewKeys().n
                                                                     : 0;
    };
    EXPECT_EQ(cost(nullptr), 32768);
    EXPECT_EQ(cost(""), 32768);
    for (const char* good : {"1024", "2048", "524288"}) EXPECT_EQ(cost(good), std::atol(good));
    for (const char* bad : {"512", "1023", "1025", "1536", "524289", "1048576", "-1024", "2048x",
                            "many", "0", "9223372036854775808"}) {
        EXPECT_EQ(cost(bad), 0) << bad;
    }
    const ScopedVariable variable("KESTA_SOFTKEY_PIN_COST", "512");
    EXPECT_EQ(FailureOf([] { softkey::CostOfNewKeys(); }),
              std::to_string(softkey::kBadArgument) + " KESTA_SOFTKEY_PIN_COST=512");
}

// How many characters a text counts for, among those of a PIN.
int Characters(const std::string& text) {
    const auto allowed = [&](std::size_t more) {
        return CodeOf([&] { softkey::CheckPinLength(std::string(more, 'x') + text); }) ==
               softkey::kOk;
    };
    int most = 16;
    while (most > 0 && !allowed(static_cast<std::size_t>(most))) --most;
    EXPECT_TRUE(most < 6 || allowed(6)) << "sixteen at most";
    return 16 - most;
}

TEST(PinLength, is_from_6_to_16) {
    for (std::size_t length = 0; length < 20; ++length) {
        const bool good = length >= 6 && length <= 16;
        EXPECT_EQ(CodeOf([&] { softkey::CheckPinLength(std::string(length, '1')); }),
                  good ? softkey::kOk : softkey::kPinLength)
            << length;
    }
    EXPECT_EQ(CodeOf([] { SealMaster(MasterKey::Random(), "12345", "A", kCheap); }),
              softkey::kPinLength);
}

TEST(PinLength, counts_characters_of_utf8_and_what_is_none_byte_by_byte) {
    const std::vector<std::pair<std::string, int>> cases = {{"x", 1},
                                                            {"\x7F", 1},
                                                            {"\xC2\x80", 1},
                                                            {"\xDF\xBF", 1},
                                                            {"\xE0\xA0\x80", 1},
                                                            {"\xEF\xBF\xBF", 1},
                                                            {"\xF0\x90\x80\x80", 1},
                                                            {"\xF4\x8F\xBF\xBF", 1},
                                                            {"\xC1\x80", 2},
                                                            {"\xF5\x80\x80\x80", 4},
                                                            {"\x80\x80", 2},
                                                            {"\xC2x", 2},
                                                            {"\xC2\xC0", 2},
                                                            {"\xE0\xA0x", 3},
                                                            {"\xE0x\x80", 3},
                                                            {"\xF0\x90\x80x", 4},
                                                            {"\xE5\xAF\x86\xE7\xA0\x81", 2}};
    for (const auto& [text, count] : cases)
        EXPECT_EQ(Characters(text), count) << ToHex(Bytes(text.begin(), text.end()));
    const std::string five = "12345";
    for (const char* cut : {"\xC2", "\xE0\xA0", "\xF0\x90\x80"}) {
        EXPECT_EQ(CodeOf([&] { softkey::CheckPinLength(five + cut); }), softkey::kOk)
            << "a character that is cut off";
    }
}

}  // namespace
