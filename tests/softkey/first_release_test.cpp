// A state that the first release left behind opens, and becomes one of today.
#include <filesystem>

#include "softkey/crypto/key_pair.h"
#include "softkey/crypto/openssl_types.h"
#include "softkey/store/damage.h"
#include "softkey/store/objects.h"
#include "softkey/store/pairs.h"
#include "softkey/store/pins.h"
#include "token_fixture.h"

using namespace softkey;

namespace {

class FirstReleaseTest : public TokenTest {
protected:
    FirstReleaseTest() {
        std::filesystem::create_directory(Home());
        std::filesystem::permissions(Home(), std::filesystem::perms::owner_all);
        for (const char* const name : {"softkey.db", "softkey.db-wal"}) {
            std::filesystem::copy(std::string(FIRST_RELEASE_STATE) + "/" + name, Home());
        }
        SetPin(kPin);
    }
    PinSeal Seal() const { return PinTable(*OpenStore()).Seal(kSerial); }
};

TEST_F(FirstReleaseTest, its_keys_sign_and_its_object_is_there) {
    EXPECT_EQ(token.VerifyPIN(kSerial), kOk);
    EXPECT_EQ(SignHash(std::string(64, 'a'), 2).code, kOk);
    EXPECT_EQ(SignHash(std::string(64, 'a'), 1, 2).code, kOk);
    char value[260] = {};
    EXPECT_EQ(token.GetData("first-release", 7, value), kOk);
    EXPECT_STREQ(value, "kept");
    EXPECT_EQ(PairTable(*OpenStore()).Of(kSerial).size(), 2U);
}

TEST_F(FirstReleaseTest, it_is_moved_on) {
    EXPECT_EQ(Seal().kdf, Kdf::kPbkdf2) << "until the PIN is at hand";
    EXPECT_EQ(Succeed("ls home"), "softkey.db\nsoftkey.guard\n");
    EXPECT_EQ(FindDamage(Home()), std::vector<std::string>());
    SetPin("000000");
    EXPECT_EQ(token.VerifyPIN(kSerial), kPinWrong);
    SetPin(kPin);
    EXPECT_EQ(token.VerifyPIN(kSerial), kOk);
    EXPECT_EQ(Seal().kdf, Kdf::kScrypt);
    EXPECT_EQ(SignHash(std::string(64, 'a'), 1, 2).code, kOk);
}

TEST_F(FirstReleaseTest, without_its_log_it_is_damaged) {
    std::filesystem::remove(Path("home/softkey.db-wal"));
    EXPECT_EQ(token.VerifyPIN(kSerial), kStateDamaged);
    EXPECT_FALSE(FindDamage(Home()).empty());
}

}  // namespace
