// Changes of a state: whole or not at all, seen by others, out of nobody's way; and what is damaged
// within.
#include <fcntl.h>

#include <filesystem>
#include <stdexcept>

#include "softkey/store/damage.h"
#include "softkey/store/key_admin.h"
#include "softkey/store/lock.h"
#include "softkey/store/places.h"
#include "softkey/store/schema.h"
#include "tables_fixture.h"

using namespace softkey;

namespace {

using ChangesTest = TablesTest;

TEST_F(ChangesTest, a_change_that_changes_nothing_writes_nothing) {
    Add(Record("K1", 1));
    SystemCalls::Instance().changes.clear();
    const std::int64_t version = store_->Version();
    {
        Transaction nothing(*store_);
        nothing.Commit();
    }
    EXPECT_FALSE(KeyTable(*store_).SetInserted("K1", true));
    EXPECT_EQ(store_->Version(), version);
    EXPECT_EQ(SystemCalls::Instance().changes, std::vector<std::string>());
}

TEST_F(ChangesTest, that_change_nothing_spoil_no_greater_one) {
    Add(Record("K1", 1));
    Transaction greater(*store_);
    EXPECT_FALSE(KeyTable(*store_).SetInserted("K1", true));
    KeyTable(*store_).SetLabel("K1", "new");
    greater.Commit();
    EXPECT_EQ(KeyTable(*store_).Find("K1")->label, "new");
}

TEST_F(ChangesTest, a_part_that_failed_is_named_when_the_whole_is_to_be_stored) {
    Add(Record("K1", 1));
    const auto fail = [&] {
        Transaction whole(*store_);
        KeyTable(*store_).SetLabel("K1", "half");
        EXPECT_EQ(OutcomeOf([&] { KeyTable(*store_).SetLabel("K2", ""); }).first, kKeyAbsent);
        whole.Commit();
    };
    try {
        fail();
        FAIL() << "it was stored";
    } catch (const std::logic_error& error) {
        EXPECT_STREQ(error.what(), "a part of the transaction failed");
    }
    EXPECT_EQ(Key("K1").label, "label of K1");
}

TEST_F(ChangesTest, whatever_comes_of_a_change_others_may_make_theirs) {
    Add(Record("K1", 1));
    const File guard(GuardPath(home_), O_RDWR);
    const auto isFree = [&] {
        const bool free = guard.TryLock(Lock::kWriting);
        guard.Unlock(Lock::kWriting);
        return free;
    };
    EXPECT_TRUE(isFree());
    {
        Transaction open(*store_);
        EXPECT_FALSE(isFree());
    }
    EXPECT_TRUE(isFree()) << "after one that was not stored";
    SystemCalls::Instance().fails = "rename softkey.db.new";
    SystemCalls::Instance().error = EIO;
    EXPECT_EQ(OutcomeOf([&] { KeyTable(*store_).SetLabel("K1", "new"); }).first, kStateUnreachable);
    EXPECT_TRUE(isFree()) << "after one that could not be stored";
    EXPECT_EQ(Key("K1").label, "label of K1");
    const std::string sound = folder_.Read("home/softkey.db");
    folder_.Write("home/softkey.db", "spoilt");
    EXPECT_EQ(OutcomeOf([&] { KeyTable(*store_).SetLabel("K1", "new"); }).first, kStateDamaged);
    EXPECT_TRUE(isFree()) << "after one of what is damaged";
    folder_.Write("home/softkey.db", sound);
    KeyTable(*store_).SetLabel("K1", "new");
    EXPECT_TRUE(isFree());
}

TEST_F(ChangesTest, a_change_in_hand_is_neither_followed_nor_lost) {
    Add(Record("K1", 1));
    SystemCalls::Instance().now = {0, 0};  // so that no stamp holds
    store_ = Store::Open(home_);
    Transaction change(*store_);
    KeyTable(*store_).SetLabel("K1", "half");
    EXPECT_TRUE(store_->Look());
    EXPECT_EQ(store_->Version(), store_->VersionSinceLook());
    EXPECT_EQ(Key("K1").label, "half");
}

TEST_F(ChangesTest, a_look_sees_damage_that_a_number_alone_does_not) {
    Add(Record("K1", 1));
    const auto other = Store::Open(home_);
    const std::int64_t number = store_->VersionSinceLook();
    EXPECT_EQ(number, 2);
    EXPECT_EQ(store_->Number(), number);
    KeyTable(*other).SetLabel("K1", "theirs");
    EXPECT_EQ(store_->Number(), number) << "nobody looked";
    EXPECT_EQ(store_->VersionSinceLook(), 3);
    folder_.Write("home/softkey.db", "spoilt");
    EXPECT_EQ(store_->VersionSinceLook(), 3);
    EXPECT_EQ(OutcomeOf([&] { store_->Version(); }).first, kStateDamaged);
    EXPECT_EQ(OutcomeOf([&] { store_->Look(); }).first, kStateDamaged);
    EXPECT_EQ(OutcomeOf([&] { store_->database(); }).first, kStateDamaged);
}

TEST_F(ChangesTest, a_state_that_took_the_place_of_another_is_told) {
    Add(Record("K1", 1));
    EXPECT_TRUE(store_->StillThere());
    EXPECT_TRUE(store_->Look());
    const auto held = std::make_unique<Store::Held>(*store_);
    std::filesystem::rename(home_, folder_.File("aside"));
    EXPECT_FALSE(store_->StillThere());
    EXPECT_FALSE(store_->Look());
    const auto another = Store::Open(home_);
    EXPECT_FALSE(store_->StillThere());
    EXPECT_FALSE(store_->Look());
    EXPECT_EQ(
        OutcomeOf([&] { KeyTable(*store_).SetLabel("K1", ""); }),
        Outcome(kStateUnreachable, home_ + ": another state has taken the place of this one"));
    EXPECT_TRUE(another->Look());
}

TEST_F(ChangesTest, a_store_that_is_held_shows_what_it_showed) {
    Add(Record("K1", 1));
    const auto other = Store::Open(home_);
    {
        const Store::Held held(*store_);
        KeyTable(*other).SetLabel("K1", "theirs");
        EXPECT_EQ(Key("K1").label, "label of K1");
        EXPECT_TRUE(store_->Look());
        EXPECT_EQ(Key("K1").label, "theirs");
        KeyTable(*other).SetLabel("K1", "again");
    }
    EXPECT_EQ(Key("K1").label, "again");
}

TEST_F(ChangesTest, a_store_that_is_held_shows_nothing_of_a_change_that_failed) {
    Add(Record("K1", 1));
    const auto other = Store::Open(home_);
    const Store::Held held(*store_);
    {
        Transaction dropped(*store_);
        KeyTable(*store_).SetLabel("K1", "half");
    }
    KeyTable(*other).SetLabel("K1", "theirs");
    EXPECT_EQ(Key("K1").label, "label of K1");
    SystemCalls::Instance().fails = "rename softkey.db.new";
    SystemCalls::Instance().error = EIO;
    EXPECT_EQ(OutcomeOf([&] { KeyTable(*store_).SetLabel("K1", "new"); }).first, kStateUnreachable);
    EXPECT_EQ(Key("K1").label, "theirs");
    folder_.Write("home/softkey.db", "spoilt");
    EXPECT_EQ(OutcomeOf([&] { store_->Look(); }).first, kStateDamaged);
    EXPECT_EQ(OutcomeOf([&] { Key("K1"); }).first, kStateDamaged);
}

TEST_F(ChangesTest, a_change_that_finds_no_memory_to_be_undone_is_forgotten_all_the_same) {
    Add(Record("K1", 1));
    {
        Transaction dropped(*store_);
        KeyTable(*store_).SetLabel("K1", "half");
        sqlite3_hard_heap_limit64(1);
    }
    sqlite3_hard_heap_limit64(0);
    EXPECT_EQ(Key("K1").label, "label of K1");
}

TEST_F(ChangesTest, only_what_is_there_is_opened_by_those_who_look) {
    EXPECT_NE(Store::OpenExisting(home_), nullptr);
    EXPECT_EQ(Store::OpenExisting(folder_.File("none")), nullptr);
    std::filesystem::create_directory(folder_.File("empty"));
    std::filesystem::permissions(folder_.File("empty"), std::filesystem::perms::owner_all);
    EXPECT_EQ(Store::OpenExisting(folder_.File("empty")), nullptr);
    EXPECT_TRUE(std::filesystem::is_empty(folder_.File("empty")));
}

// Damage within a state whose files are as they were stored.

TEST_F(ChangesTest, a_version_that_is_not_known_is_damage) {
    Add(Record("K1", 1));
    const std::string database = folder_.Read("home/softkey.db");
    const std::string guard = folder_.Read("home/softkey.guard");
    for (const std::int64_t version : {std::int64_t{1}, kSchemaVersion + 1}) {
        Execute(("PRAGMA user_version = " + std::to_string(version) +
                 "; UPDATE keys SET label = 'another'")
                    .c_str());
        EXPECT_EQ(OutcomeOf([this] { Store::Open(home_); }),
                  Outcome(kStateDamaged, home_ + "/softkey.db: schema version " +
                                             std::to_string(version) + " is not known"));
        folder_.Write("home/softkey.db", database);
        folder_.Write("home/softkey.guard", guard);
        store_ = Store::Open(home_);
    }
}

class FoundDamage : public TablesTest {
protected:
    FoundDamage() {
        NewKey wanted;
        wanted.serial = "K1";
        wanted.pinCost = {1024, 8, 1};
        wanted.certificates = {1000000000, 2000000000};
        CreateKey(*store_, wanted, "123456");
    }
};

TEST_F(FoundDamage, is_told_line_by_line_and_nothing_else) {
    const std::string first = "key K1, key pair 1: ", second = "key K1, key pair 2: ";
    const std::pair<const char*, std::vector<std::string>> cases[] = {
        {"UPDATE keys SET label = 'another'", {}},
        {"UPDATE pairs SET certificate = x'' WHERE id = 1", {}},
        {"UPDATE pairs SET certificate = x'3000' WHERE id = 1",
         {first + "the certificate cannot be read"}},
        {"UPDATE pairs SET certificate = (SELECT certificate FROM pairs WHERE id = 1) WHERE id = 2",
         {second + "the certificate belongs to another key"}},
        {"UPDATE pairs SET wrapped = x'00' WHERE id = 2",
         {second + "the wrapped private key is cut short"}},
        {"UPDATE pairs SET algorithm = 1 WHERE id = 2", {second + "the public key cannot be read"}},
        {"UPDATE pairs SET public_key = x'3000', certificate = x'' WHERE id = 1",
         {first + "the public key cannot be read"}},
        {"UPDATE keys SET salt = x''", {"key K1: the PIN seal is malformed"}},
        {"UPDATE keys SET kdf = 1", {}},
        {"UPDATE keys SET block = 0", {"key K1: the PIN seal is malformed"}},
        {"UPDATE keys SET cost = 1", {"key K1: the PIN seal is malformed"}},
        {"UPDATE keys SET sealed = x'00'", {"key K1: the PIN seal is malformed"}},
        {"PRAGMA ignore_check_constraints = ON; UPDATE keys SET button = 7",
         {"database: CHECK constraint failed in keys"}}};
    for (const auto& [sql, lines] : cases) {
        const std::string database = folder_.Read("home/softkey.db");
        const std::string guard = folder_.Read("home/softkey.guard");
        Execute(sql);
        std::vector<std::string> found = FindDamage(home_);
        std::vector<std::string> expected = lines;
        // What was found is looked for once more in the file alone.
        expected.insert(expected.end(), lines.begin(), lines.end());
        EXPECT_EQ(found, expected) << sql;
        folder_.Write("home/softkey.db", database);
        folder_.Write("home/softkey.guard", guard);
        store_ = Store::Open(home_);
    }
}

}  // namespace
