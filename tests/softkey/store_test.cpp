// The store: what it keeps, what it refuses, and how others see a change.
#include "softkey/store/store.h"

#include <filesystem>

#include "softkey/store/damage.h"
#include "softkey/store/events.h"
#include "softkey/store/guard.h"
#include "softkey/store/keys.h"
#include "softkey/store/objects.h"
#include "softkey/store/pairs.h"
#include "softkey/store/questions.h"
#include "softkey/store/schema.h"
#include "softkey/store/screen.h"
#include "token_fixture.h"

using namespace softkey;

namespace {

PinSeal SomeSeal() {
    PinSeal seal;
    seal.cost = 1024;
    seal.block = 8;
    seal.parallel = 1;
    seal.salt.assign(16, 1);
    seal.sealed.assign(60, 2);
    return seal;
}

class StoreTest : public TokenTest {
protected:
    StoreTest() : store_(OpenStore()) {}

    KeyRecord Record(const std::string& serial, const std::string& mediaId, std::uint32_t slot) {
        KeyRecord key;
        key.serial = serial;
        key.mediaId = mediaId;
        key.label = "label";
        key.slot = slot;
        return key;
    }
    Code Add(const KeyRecord& key) {
        try {
            KeyTable(*store_).Add(key, SomeSeal());
            return kOk;
        } catch (const Failure& failure) {
            EXPECT_NE(failure.detail(), "");
            return failure.code();
        }
    }
    std::unique_ptr<Store> store_;
};

TEST_F(StoreTest, opening_it_takes_an_earlier_versions_log_away_that_a_crash_left) {
    Write("home/softkey.db-wal", "log");
    OpenStore();
    EXPECT_FALSE(std::filesystem::exists(Path("home/softkey.db-wal")));
}

TEST_F(StoreTest, what_only_looks_makes_no_folder) {
    EXPECT_EQ(Store::OpenExisting(Path("elsewhere")), nullptr);
    int status = 0;
    Shell("test -e elsewhere", &status);
    EXPECT_NE(status, 0);
}

TEST_F(StoreTest, missing_folders_are_made_for_their_owner_alone) {
    Store::Open(Path("a/b/c"));
    EXPECT_EQ(Succeed("stat -c %a a a/b a/b/c"), "700\n700\n700\n");
}

TEST_F(StoreTest, names_that_are_taken_are_refused) {
    ASSERT_EQ(Add(Record("K1", "M1", 1)), kOk);
    EXPECT_EQ(Add(Record("K1", "M2", 2)), kBadArgument);
    EXPECT_EQ(Add(Record("K2", "M1", 2)), kBadArgument);
    EXPECT_EQ(Add(Record("K2", "M2", 1)), kBadArgument);
    EXPECT_EQ(Add(Record("K2", "M2", 2)), kOk);
}

TEST_F(StoreTest, names_that_are_malformed_are_refused) {
    EXPECT_EQ(Add(Record("", "M1", 1)), kBadArgument);
    EXPECT_EQ(Add(Record("../K1", "M1", 1)), kBadArgument);
    EXPECT_EQ(Add(Record("K 1", "M1", 1)), kBadArgument);
    EXPECT_EQ(Add(Record(std::string(33, 'K'), "M1", 1)), kBadArgument);
    EXPECT_EQ(Add(Record("K1", "", 1)), kBadArgument);
    EXPECT_EQ(Add(Record("K1", std::string(17, 'M'), 1)), kBadArgument);
    EXPECT_EQ(Add(Record(std::string(32, 'K'), std::string(16, 'M'), 1)), kOk);
}

TEST_F(StoreTest, insertion_and_removal_raise_numbered_events) {
    Add(Record("K1", "M1", 5));
    EXPECT_TRUE(KeyTable(*store_).SetInserted("K1", false));
    EXPECT_FALSE(KeyTable(*store_).SetInserted("K1", false));
    EXPECT_TRUE(KeyTable(*store_).SetInserted("K1", true));
    const std::vector<Event> events = EventLog(*store_).After(0);
    ASSERT_EQ(events.size(), 3U);
    EXPECT_EQ(events[0].kind, EventKind::kInserted);
    EXPECT_EQ(events[1].kind, EventKind::kRemoved);
    EXPECT_EQ(events[2].number, 3);
    EXPECT_EQ(events[2].slot, 5U);
    EXPECT_EQ(events[2].mediaId, "M1");
    EXPECT_EQ(EventLog(*store_).LastNumber(), 3);
    EXPECT_EQ(EventLog(*store_).After(2).size(), 1U);
}

TEST_F(StoreTest, a_key_that_is_not_inserted_raises_none) {
    KeyRecord key = Record("K1", "M1", 1);
    key.inserted = false;
    Add(key);
    KeyTable(*store_).Delete("K1");
    EXPECT_EQ(EventLog(*store_).LastNumber(), 0);
}

TEST_F(StoreTest, the_log_keeps_the_last_thousand) {
    Add(Record("K1", "M1", 1));
    Transaction transaction(*store_);
    for (int i = 0; i < 600; ++i) {
        KeyTable(*store_).SetInserted("K1", false);
        KeyTable(*store_).SetInserted("K1", true);
    }
    transaction.Commit();
    const std::vector<Event> events = EventLog(*store_).After(0);
    EXPECT_EQ(events.size(), 1000U);
    EXPECT_EQ(events.back().number, 1201);
}

TEST_F(StoreTest, the_version_changes_with_what_anyone_changes_and_not_otherwise) {
    Add(Record("K1", "M1", 1));
    auto other = OpenStore();
    const std::int64_t quiet = store_->Version();
    EXPECT_EQ(store_->Version(), quiet);
    KeyTable(*other).SetLabel("K1", "theirs");
    const std::int64_t theirs = store_->Version();
    EXPECT_NE(theirs, quiet);
    KeyTable(*store_).SetLabel("K1", "ours");
    EXPECT_NE(store_->Version(), theirs);
}

TEST_F(StoreTest, what_was_not_committed_is_not_there) {
    Add(Record("K1", "M1", 1));
    {
        Transaction transaction(*store_);
        KeyTable(*store_).SetLabel("K1", "half");
    }
    EXPECT_EQ(KeyTable(*store_).Find("K1")->label, "label");
}

TEST_F(StoreTest, a_part_that_fails_fails_the_whole) {
    Add(Record("K1", "M1", 1));
    try {
        Transaction transaction(*store_);
        KeyTable(*store_).SetLabel("K1", "half");
        EXPECT_THROW(KeyTable(*store_).SetLabel("K2", "nobody"), Failure);
        transaction.Commit();
        ADD_FAILURE() << "committed";
    } catch (const std::logic_error&) {
    }
    EXPECT_EQ(KeyTable(*store_).Find("K1")->label, "label");
    EXPECT_NO_THROW(KeyTable(*store_).SetLabel("K1", "whole"));
}

// A kill in the middle of making the first state leaves a guard before the file that it is for.
TEST_F(StoreTest, a_first_state_that_was_not_finished_is_made_anew) {
    const Bytes image = FreshImage();
    Guard guard = Guard::Make();
    guard.after = {1, guard.DigestOf(image)};
    const Guard::Text text = guard.Write();
    std::filesystem::create_directory(Path("new"));
    std::filesystem::permissions(Path("new"), std::filesystem::perms::owner_all);
    Write("new/softkey.guard", {reinterpret_cast<const char*>(text.data()), text.size()});
    EXPECT_EQ(Store::OpenExisting(Path("new")), nullptr);
    Write("new/softkey.db", {reinterpret_cast<const char*>(image.data()), image.size()});
    EXPECT_NE(Store::OpenExisting(Path("new")), nullptr) << "only what comes after was missing";
    EXPECT_EQ(Read("new/softkey.db"), std::string(image.begin(), image.end()));
    std::filesystem::remove(Path("new/softkey.db"));
    EXPECT_EQ(Store::Open(Path("new"))->Version(), 1);
}

TEST_F(StoreTest, a_state_in_the_place_of_another_is_not_written_by_those_who_had_the_other) {
    std::filesystem::rename(Home(), Path("moved"));
    Store::Open(Home());
    const std::string there = Read("home/softkey.db");
    EXPECT_EQ(Add(Record("A", "MEDIA", 1)), kStateUnreachable);
    EXPECT_EQ(Read("home/softkey.db"), there);
}

TEST_F(StoreTest, deletion_takes_everything_of_a_key_along) {
    Add(Record("K1", "M1", 1));
    ObjectTable(*store_).Set("K1", {"0123456789", 0, "v"});
    PairTable(*store_).Add("K1", {});
    Screen(*store_).Show("K1", "text");
    KeyTable(*store_).Delete("K1");
    EXPECT_TRUE(PairTable(*store_).Of("K1").empty());
    EXPECT_TRUE(ObjectTable(*store_).Of("K1").empty());
    EXPECT_EQ(Screen(*store_).Text("K1"), "");
    EXPECT_EQ(FindDamage(Home()), std::vector<std::string>());
}

TEST_F(StoreTest, a_made_up_key_takes_the_lowest_free_slot) {
    CreateKey("K1", "M1");
    CreateKey("K2", "M2");
    CreateKey("K3", "M3");
    KeyTable(*store_).Delete("K2");
    const KeyRecord made = softkey::CreateKey(*store_, {}, "123456");
    EXPECT_EQ(made.slot, 2U);
    EXPECT_EQ(made.label, made.serial);
    EXPECT_EQ(made.serial.size(), 12U);
    EXPECT_LE(made.mediaId.size(), kMaxMediaIdLength);
    EXPECT_THROW(softkey::CreateKey(*store_, {}, "12345"), Failure);
}

TEST_F(StoreTest, an_old_question_is_not_answered) {
    Add(Record("K1", "M1", 1));
    QuestionTable(*store_).Open("K1", std::chrono::milliseconds(-1));
    EXPECT_EQ(QuestionTable(*store_).Decide("K1", Button::kRefuse), 0);
    EXPECT_EQ(KeyTable(*store_).Find("K1")->button, Button::kRefuse);
}

}  // namespace
