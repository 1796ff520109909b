// A state that the first release left behind opens, and becomes one of today.
#include <sqlite3.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "file_size_limit.h"
#include "own_mounts.h"
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
    // Changes the state as a program does that knows nothing of the software key.
    void Execute(const std::string& sql) const {
        sqlite3* db = nullptr;
        ASSERT_EQ(sqlite3_open(Path("home/softkey.db").c_str(), &db), SQLITE_OK);
        const std::string all = "PRAGMA journal_mode = DELETE; " + sql;
        EXPECT_EQ(sqlite3_exec(db, all.c_str(), nullptr, nullptr, nullptr), SQLITE_OK) << sql;
        sqlite3_close(db);
    }
    // What is said of the damage, and that nothing is made of it.
    void ExpectDamage(const std::string& words) {
        EXPECT_EQ(token.VerifyPIN(kSerial), kStateDamaged);
        const std::vector<std::string> damage = FindDamage(Home());
        ASSERT_FALSE(damage.empty());
        EXPECT_NE(damage[0].find(words), std::string::npos) << damage[0];
        EXPECT_FALSE(std::filesystem::exists(Path("home/softkey.guard")));
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

TEST_F(FirstReleaseTest, with_its_log_alone_it_is_damaged) {
    std::filesystem::remove(Path("home/softkey.db"));
    ExpectDamage("missing or empty beside its log");
}

TEST_F(FirstReleaseTest, is_read_where_nothing_can_be_written) {
    const int status = OnReadOnlyMedium(Home(), Path("medium"), [this] {
        char value[260] = {};
        EXPECT_EQ(token.GetData("first-release", 7, value), kOk);
        EXPECT_STREQ(value, "kept");
        EXPECT_EQ(token.SetLabel(kSerial, "new"), kStateUnreachable);
    });
    EXPECT_EQ(status, 0) << (status == 77 ? "a mount of its own cannot be had here" : "");
    EXPECT_FALSE(std::filesystem::exists(Path("home/softkey.guard")));
}

TEST_F(FirstReleaseTest, is_waited_for_while_a_program_of_its_own_has_it_for_itself) {
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(Path("home/softkey.db").c_str(), &db), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(db, "PRAGMA journal_mode = DELETE; BEGIN EXCLUSIVE", nullptr, nullptr,
                           nullptr),
              SQLITE_OK);
    std::thread program([db] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        sqlite3_close(db);
    });
    EXPECT_EQ(token.VerifyPIN(kSerial), kOk);
    program.join();
}

TEST_F(FirstReleaseTest, with_a_folder_in_the_place_of_its_log_it_is_out_of_reach) {
    std::filesystem::remove(Path("home/softkey.db-wal"));
    std::filesystem::create_directory(Path("home/softkey.db-wal"));
    EXPECT_EQ(token.VerifyPIN(kSerial), kStateUnreachable);
}

TEST_F(FirstReleaseTest, beside_which_its_index_must_not_grow_is_told_as_full) {
    {
        const FileSizeLimit none(0);
        EXPECT_EQ(token.VerifyPIN(kSerial), kStateFull);
    }
    EXPECT_EQ(token.VerifyPIN(kSerial), kOk);
}

TEST_F(FirstReleaseTest, with_a_value_that_its_own_rules_forbid_it_is_damaged) {
    Execute("PRAGMA ignore_check_constraints = ON; UPDATE pairs SET role = 9");
    ExpectDamage("CHECK constraint failed in pairs");
}

TEST_F(FirstReleaseTest, of_a_version_that_never_was_it_is_damaged) {
    for (const int version : {0, 3, 99}) {
        Execute("PRAGMA user_version = " + std::to_string(version));
        ExpectDamage("schema version " + std::to_string(version) + " is not known");
    }
}

}  // namespace
