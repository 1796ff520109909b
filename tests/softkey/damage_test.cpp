// A state that is damaged, full, read-only or busy: a clear code, never a crash.
#include "softkey/store/damage.h"

#include <signal.h>
#include <sqlite3.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <random>

#include "file_size_limit.h"
#include "own_mounts.h"
#include "softkey/store/database.h"
#include "softkey/store/lock.h"
#include "softkey/store/pairs.h"
#include "token_fixture.h"

using namespace softkey;

namespace {

class DamageTest : public TokenTest {
protected:
    DamageTest() { CreateKey(); }

    std::string Database() const { return Home() + "/softkey.db"; }
    // Runs SQL behind the key's back.
    void Sql(const std::string& sql) {
        sqlite3* db = nullptr;
        ASSERT_EQ(sqlite3_open(Database().c_str(), &db), SQLITE_OK);
        char* error = nullptr;
        EXPECT_EQ(sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &error), SQLITE_OK) << error;
        sqlite3_close(db);
    }
    std::vector<std::string> Damage() { return FindDamage(Home()); }
    bool DamageNames(const std::string& what) {
        for (const std::string& line : Damage()) {
            if (line.find(what) != std::string::npos) return true;
        }
        return false;
    }
    int Describe() {
        std::uint32_t state = 0;
        _S_DEV_CONFIG record{};
        char serial[1024] = {};
        return token.CheckDeviceEx(&state, &record, 1, serial);
    }
};

TEST_F(DamageTest, a_sound_state_has_none) {
    Enrol(1, 2, 3);
    EXPECT_EQ(Damage(), std::vector<std::string>());
}

TEST_F(DamageTest, a_file_that_is_no_database_is_told_by_every_operation) {
    ASSERT_EQ(token.VerifyPIN(kSerial), kOk);
    std::filesystem::remove_all(Home());
    std::filesystem::create_directory(Home());
    std::filesystem::permissions(Home(), std::filesystem::perms::owner_all);
    std::ofstream(Database()) << std::string(8192, 'x');
    EXPECT_EQ(Describe(), kStateDamaged);
    EXPECT_EQ(token.VerifyPIN(kSerial), kStateDamaged);
    EXPECT_EQ(Request(1, 2, 3).code, kStateDamaged);
    EXPECT_EQ(SignHash(std::string(64, 'a')).code, kStateDamaged);
    EXPECT_EQ(token.SetData("0123456789", 0, "v"), kStateDamaged);
    EXPECT_THROW(OpenStore(), Failure);
    for (const auto& open : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        const std::string file = std::filesystem::read_symlink(open, gone).string();
        EXPECT_NE(file.substr(0, Home().size()), Home()) << "kept open: " << file;
    }
}

TEST_F(DamageTest, a_schema_of_another_version_is_told) {
    const auto store = OpenStore();
    {
        Transaction change(*store);
        store->database().Execute("UPDATE keys SET label = 'of a later release'");
        store->database().Execute("PRAGMA user_version = 99");
        change.Commit();
    }
    EXPECT_EQ(Describe(), kStateDamaged);
    EXPECT_TRUE(DamageNames("schema version 99 is not known"));
}

TEST_F(DamageTest, a_missing_table_is_told) {
    Sql("DROP TABLE data");
    char value[260];
    EXPECT_EQ(token.GetData("0123456789", 0, value), kStateDamaged);
    EXPECT_FALSE(Damage().empty());
}

TEST_F(DamageTest, a_spoilt_wrapped_key_is_told_and_signs_nothing) {
    ASSERT_EQ(Request(1, 2, 3).code, kOk);
    token.GM_RemoveUserPin();
    Sql("UPDATE pairs SET wrapped = zeroblob(length(wrapped))");
    EXPECT_EQ(SignHash(std::string(64, 'a')).code, kStateDamaged);
    Sql("UPDATE pairs SET wrapped = x'00'");
    EXPECT_TRUE(DamageNames("wrapped private key"));
}

TEST_F(DamageTest, a_wrapped_key_does_not_open_for_another_public_key) {
    ASSERT_EQ(Request(1, 2, 3).code, kOk);
    ASSERT_EQ(Request(1, 2, 3).code, kOk);
    token.GM_RemoveUserPin();
    Sql("UPDATE pairs SET wrapped = (SELECT wrapped FROM pairs ORDER BY id LIMIT 1)");
    EXPECT_EQ(SignHash(std::string(64, 'a')).code, kStateDamaged);
}

TEST_F(DamageTest, a_spoilt_certificate_is_told) {
    Enrol(1, 2, 3);
    Sql("UPDATE pairs SET certificate = x'3000'");
    char name[1024];
    EXPECT_EQ(token.GM_GetCertDN(kSerial, 1, 2, name), kStateDamaged);
    EXPECT_TRUE(DamageNames("certificate cannot be read"));
}

TEST_F(DamageTest, a_certificate_of_another_pair_is_told) {
    Enrol(1, 2, 3);
    ASSERT_EQ(Request(1, 2, 3).code, kOk);
    Sql("UPDATE pairs SET certificate = (SELECT certificate FROM pairs ORDER BY id LIMIT 1)");
    EXPECT_TRUE(DamageNames("belongs to another key"));
}

TEST_F(DamageTest, a_spoilt_pin_seal_is_told) {
    Sql("UPDATE keys SET sealed = x'00'");
    EXPECT_EQ(token.VerifyPIN(kSerial), kStateDamaged);
    EXPECT_TRUE(DamageNames("PIN seal"));
}

TEST_F(DamageTest, a_pair_that_belongs_to_no_key_is_told) {
    ASSERT_EQ(Request(1, 2, 3).code, kOk);
    Sql("PRAGMA foreign_keys = OFF; UPDATE pairs SET serial = 'nobody'");
    EXPECT_TRUE(DamageNames("belongs to no key"));
}

// One way in which a file of the state may be damaged.
struct Damager {
    const char* name;
    std::string (*spoil)(std::string sound, const std::string& earlier, std::mt19937& random);
};

const Damager kDamagers[] = {
    {"a flipped bit",
     [](std::string sound, const std::string&, std::mt19937& random) {
         sound[random() % sound.size()] ^= static_cast<char>(1U << (random() % 8));
         return sound;
     }},
    {"cut short", [](std::string sound, const std::string&,
                     std::mt19937& random) { return sound.substr(0, random() % sound.size()); }},
    {"a lost block",
     [](std::string sound, const std::string&, std::mt19937& random) {
         const std::size_t at = random() % sound.size();
         const std::size_t size = std::min<std::size_t>(512, sound.size() - at);
         std::string spoilt = sound;
         spoilt.replace(at, size, size, '\0');
         if (spoilt == sound) spoilt[at] = 1;
         return spoilt;
     }},
    {"more behind it",
     [](std::string sound, const std::string&, std::mt19937& random) {
         return sound + std::string(random() % 99 + 1, 'x');
     }},
    {"from an earlier time",
     [](std::string, const std::string& earlier, std::mt19937&) { return earlier; }},
    {"emptied", [](std::string, const std::string&, std::mt19937&) { return std::string(); }},
};

TEST_F(DamageTest, a_thousand_damaged_states_are_all_told) {
    Enrol(1, 2, 3);
    const std::string files[] = {"home/softkey.db", "home/softkey.guard"};
    const std::string earlier[] = {Read(files[0]), Read(files[1])};
    ASSERT_EQ(token.SetData("0123456789", 0, "v"), kOk);
    SetPin("999999");
    ASSERT_EQ(token.VerifyPIN(kSerial), kPinWrong);
    SetPin(kPin);
    const std::string sound[] = {Read(files[0]), Read(files[1])};
    std::mt19937 random(7);
    for (int i = 0; i < 1000; ++i) {
        const std::size_t which = random() % 2;
        const Damager& damager = kDamagers[random() % std::size(kDamagers)];
        const std::string spoilt = damager.spoil(sound[which], earlier[which], random);
        Write(files[which], spoilt);
        EXPECT_EQ(Describe(), kStateDamaged) << files[which] << ": " << damager.name;
        EXPECT_NE(Damage(), std::vector<std::string>()) << files[which] << ": " << damager.name;
        EXPECT_EQ(token.VerifyPIN(kSerial), kStateDamaged);
        EXPECT_EQ(token.SetLabel(kSerial, "new"), kStateDamaged);
        EXPECT_EQ(Read(files[which]), spoilt) << "looking changed it";
        Write(files[which], sound[which]);
        ASSERT_EQ(Describe(), kOk);
    }
    EXPECT_EQ(TriesLeft(), kMaxTries - 1);
}

TEST_F(DamageTest, what_is_no_file_of_a_state_is_told_and_read_by_nobody) {
    for (const char* const name : {"softkey.db", "softkey.guard"}) {
        const std::string file = std::string("home/") + name;
        const std::string sound = Read(file);
        std::filesystem::resize_file(Path(file), std::uintmax_t{1} << 40);
        EXPECT_EQ(Describe(), kStateDamaged) << name << " is larger than memory";
        EXPECT_NE(Damage(), std::vector<std::string>()) << name;
        std::filesystem::remove(Path(file));
        ASSERT_EQ(mkfifo(Path(file).c_str(), 0600), 0);
        const int pipe = Describe();
        EXPECT_TRUE(pipe == kStateDamaged || pipe == kStateUnreachable) << name << " is a pipe";
        std::filesystem::remove(Path(file));
        Write(file, sound);
        ASSERT_EQ(Describe(), kOk);
    }
}

TEST_F(DamageTest, nothing_is_written_through_a_link) {
    ASSERT_EQ(Request(1, 2, 3).code, kOk);
    Write("another", "of somebody's");
    for (const std::string& name :
         {std::string("softkey.db.new"), std::string("screen-") + kSerial}) {
        std::filesystem::create_symlink("../another", Path("home/" + name));
        EXPECT_EQ(name[1] == 'c' ? CriticalSign("text").code : token.SetLabel(kSerial, "new"),
                  kStateUnreachable);
        std::filesystem::remove(Path("home/" + name));
        EXPECT_EQ(Read("another"), "of somebody's");
    }
    EXPECT_EQ(CriticalSign("text").code, kOk);
    EXPECT_EQ(token.SetLabel(kSerial, "new"), kOk);
}

// What a service that has closed its standard streams prints must not go into the state.
TEST_F(DamageTest, no_file_of_a_state_takes_the_place_of_a_closed_stream) {
    const pid_t child = fork();
    if (child == 0) {
        for (const int stream : {0, 1, 2}) close(stream);
        const int described = Describe();
        int printed = 0;
        for (const int stream : {0, 1, 2}) printed += write(stream, "junk", 4) == 4 ? 1 : 0;
        _exit(described == kOk && printed == 0 ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(Describe(), kOk);
}

TEST_F(DamageTest, a_missing_file_is_told_and_not_made_again) {
    for (const char* const name : {"softkey.db", "softkey.guard"}) {
        const std::string file = std::string("home/") + name;
        const std::string sound = Read(file);
        std::filesystem::remove(Path(file));
        EXPECT_EQ(Describe(), kStateDamaged);
        EXPECT_TRUE(DamageNames("missing")) << name;
        EXPECT_THROW(OpenStore(), Failure);
        EXPECT_EQ(token.SetLabel(kSerial, "new"), kStateDamaged);
        EXPECT_FALSE(std::filesystem::exists(Path(file)));
        Write(file, sound);
        ASSERT_EQ(Describe(), kOk);
    }
}

TEST_F(DamageTest, a_folder_that_others_may_enter_is_refused_with_a_remedy) {
    using std::filesystem::perms;
    for (const perms open : {perms::group_read, perms::others_read, perms::group_write}) {
        std::filesystem::permissions(Home(), perms::owner_all | open);
        EXPECT_THROW(Store::OpenExisting(Home()), Failure);
        try {
            OpenStore();
            FAIL() << "it was used";
        } catch (const Failure& failure) {
            EXPECT_EQ(failure.code(), kStateUnreachable);
            EXPECT_NE(failure.detail().find("chmod 700"), std::string::npos) << failure.detail();
        }
    }
    std::filesystem::permissions(Home(), perms::owner_all);
    EXPECT_EQ(Describe(), kOk);
}

TEST_F(DamageTest, a_file_that_must_not_grow_is_told_and_changes_nothing) {
    Enrol(1, 2, 3);
    const auto pairs = PairTable(*OpenStore()).Of(kSerial).size();
    {
        const FileSizeLimit limit(4096);
        EXPECT_EQ(token.SetData("0123456789", 0, "v"), kStateFull);
        EXPECT_EQ(Request(1, 2, 3).code, kStateFull);
        EXPECT_EQ(token.VerifyPIN(kSerial), kStateFull);
    }
    EXPECT_EQ(PairTable(*OpenStore()).Of(kSerial).size(), pairs);
    EXPECT_EQ(TriesLeft(), kMaxTries);
    EXPECT_EQ(token.VerifyPIN(kSerial), kOk);
}

TEST_F(DamageTest, a_full_disk_is_told_and_changes_nothing) {
    const int status = OnSmallDisk(Home(), [this] {
        CreateKey();
        ASSERT_EQ(Request(1, 2, 3).code, kOk);
        const std::string filler = Path("home/filler");
        std::ofstream(filler) << std::string(2 << 20, 'x');
        int data = kOk;
        // Pages that the files hold already take some of it.
        const std::string value(250, 'v');
        for (int i = 0; i < 1000 && data == kOk; ++i) {
            data = token.SetData("0123456789", static_cast<std::uint32_t>(i), value.c_str());
        }
        EXPECT_EQ(data, kStateFull);
        EXPECT_EQ(Request(1, 2, 3).code, kStateFull);
        EXPECT_EQ(token.VerifyPIN(kSerial), kStateFull);
        EXPECT_EQ(SignHash(std::string(64, 'a')).code, kOk) << "needs no room";
        unlink(filler.c_str());
        EXPECT_EQ(PairTable(*OpenStore()).Of(kSerial).size(), 1U);
        EXPECT_EQ(TriesLeft(), kMaxTries);
        EXPECT_EQ(Request(1, 2, 3).code, kOk);
        EXPECT_EQ(Damage(), std::vector<std::string>());
    });
    EXPECT_EQ(status, 0) << (status == 77 ? "a file system of its own cannot be had here" : "");
}

TEST_F(DamageTest, a_medium_that_can_only_be_read_is_read_and_not_written) {
    Enrol(1, 2, 3);
    const int status = OnReadOnlyMedium(Home(), Path("medium"), [this] {
        EXPECT_EQ(Describe(), kOk);
        EXPECT_EQ(Certificate(1, 2).code, kOk);
        EXPECT_EQ(FindDamage(Path("medium")), std::vector<std::string>());
        EXPECT_EQ(token.SetLabel(kSerial, "new"), kStateUnreachable);
        EXPECT_EQ(token.VerifyPIN(kSerial), kStateUnreachable) << "a try could not be counted";
    });
    EXPECT_EQ(status, 0) << (status == 77 ? "a mount of its own cannot be had here" : "");
}

TEST_F(DamageTest, a_guard_of_another_state_is_told) {
    const std::string own = Read("home/softkey.guard");
    Store::Open(Path("other"));
    Write("home/softkey.guard", Read("other/softkey.guard"));
    EXPECT_EQ(Describe(), kStateDamaged);
    EXPECT_TRUE(DamageNames("not what was stored last"));
    std::filesystem::remove(Path("home/softkey.guard"));
    EXPECT_TRUE(DamageNames("copied without it"));
    Write("home/softkey.guard", own);
    EXPECT_EQ(Describe(), kOk);
}

TEST_F(DamageTest, a_file_in_the_place_of_the_folder_is_told) {
    std::filesystem::remove_all(Home());
    Write("home", "");
    chmod(Home().c_str(), 0600);
    EXPECT_EQ(Describe(), kStateUnreachable);
    try {
        OpenStore();
        ADD_FAILURE() << "it was opened";
    } catch (const Failure& failure) {
        EXPECT_NE(std::string(failure.what()).find("not a folder"), std::string::npos);
    }
}

TEST_F(DamageTest, a_folder_that_nothing_names_is_told) {
    for (const char* const name : {"KESTA_SOFTKEY_HOME", "XDG_DATA_HOME", "HOME"}) unsetenv(name);
    EXPECT_EQ(Describe(), kStateUnreachable);
    EXPECT_EQ(token.SetLabel(kSerial, "new"), kStateUnreachable);
}

TEST_F(DamageTest, a_folder_that_cannot_be_opened_is_told) {
    std::filesystem::remove_all(Home());
    std::filesystem::create_directories(Database());
    std::filesystem::permissions(
        Home(), std::filesystem::perms::owner_all);  // a folder where the file should be
    EXPECT_EQ(Describe(), kStateUnreachable);
}

TEST_F(DamageTest, a_state_that_stays_locked_is_busy) {
    ASSERT_EQ(token.VerifyPIN(kSerial), kOk);
    {
        const Lock stopped(Home(), Lock::kWriting);
        EXPECT_EQ(token.SetLabel(kSerial, "new"), kStateBusy);
        EXPECT_EQ(Describe(), kOk) << "readers do not wait";
    }
    EXPECT_EQ(token.SetLabel(kSerial, "new"), kOk);
}

}  // namespace
