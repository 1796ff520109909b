#include "softkey/crypto/vault.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "softkey/codes.h"

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

}  // namespace
