// The tables of a state: each value comes back as it was stored, each limit is where it is said to
// be.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <functional>

#include "softkey/store/damage.h"
#include "softkey/store/events.h"
#include "softkey/store/key_admin.h"
#include "softkey/store/objects.h"
#include "softkey/store/pairs.h"
#include "softkey/store/pins.h"
#include "softkey/store/questions.h"
#include "softkey/store/screen.h"
#include "tables_fixture.h"

using namespace softkey;

namespace {

using std::chrono::milliseconds;

TEST_F(TablesTest, a_key_comes_back_as_it_was_stored) {
    KeyRecord key = Record("K1", 4294967295U);
    key.triesLeft = 3;
    key.maxTries = 4;
    key.button = Button::kAsk;
    Add(key);
    const KeyRecord found = Key("K1");
    EXPECT_EQ(found.serial, "K1");
    EXPECT_EQ(found.label, "label of K1");
    EXPECT_EQ(found.mediaId, "M-K1");
    EXPECT_EQ(found.slot, 4294967295U);
    EXPECT_TRUE(found.inserted);
    EXPECT_EQ(found.insertions, 1) << "no event came before it";
    EXPECT_EQ(found.pinVersion, 1);
    EXPECT_EQ(found.triesLeft, 3);
    EXPECT_EQ(found.maxTries, 4);
    EXPECT_EQ(found.button, Button::kAsk);
    Add(Record("K2", 2, false));
    EXPECT_FALSE(Key("K2").inserted);
    EXPECT_EQ(Key("K2").insertions, 3) << "one event came before it";
    EXPECT_EQ(Slots(), "K2@2 K1@4294967295 ");
    EXPECT_FALSE(KeyTable(*store_).Find("K3"));
}

TEST_F(TablesTest, names_have_the_characters_and_lengths_that_are_allowed) {
    std::uint32_t slot = 0;
    const auto serial = [&](const std::string& name) {
        KeyRecord key = Record(name, ++slot);
        key.mediaId = "M" + std::to_string(slot);
        return CodeOf(key);
    };
    const auto mediaId = [&](const std::string& name) {
        ++slot;
        KeyRecord key = Record("S" + std::to_string(slot), slot);
        key.mediaId = name;
        return CodeOf(key);
    };
    const std::string all = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_.";
    for (std::size_t at = 0; at < all.size(); at += 13) {
        EXPECT_EQ(serial("x" + all.substr(at, 13)), kOk);
        EXPECT_EQ(mediaId("x" + all.substr(at, 13)), kOk);
    }
    for (const char* const name : {"", ".x", "x~", "x y", "x/y", "x\n", "~", "\xE5\xAF\x86"}) {
        EXPECT_EQ(serial(name), kBadArgument) << name;
        EXPECT_EQ(mediaId(name), kBadArgument) << name;
    }
    EXPECT_EQ(serial(std::string(32, 'K')), kOk);
    EXPECT_EQ(serial(std::string(33, 'K')), kBadArgument);
    EXPECT_EQ(mediaId(std::string(16, 'K')), kOk);
    EXPECT_EQ(mediaId(std::string(17, 'K')), kBadArgument);
}

TEST_F(TablesTest, a_label_has_at_most_511_bytes) {
    KeyRecord key = Record("K1", 1);
    for (const std::size_t size : {512U, 511U, 0U}) {
        key.label.assign(size, 'l');
        EXPECT_EQ(CodeOf(key), size > 511 ? kTooLong : kOk);
        if (size <= 511) {
            EXPECT_EQ(Key("K1").label, key.label);
            KeyTable(*store_).SetLabel("K1", std::string(511, 'm'));
            EXPECT_EQ(
                OutcomeOf([&] { KeyTable(*store_).SetLabel("K1", std::string(512, 'n')); }).first,
                kTooLong);
            EXPECT_EQ(Key("K1").label, std::string(511, 'm'));
            KeyTable(*store_).Delete("K1");
        }
    }
}

TEST_F(TablesTest, what_is_done_to_a_key_that_is_not_there_fails) {
    Add(Record("K1", 1));
    const std::function<void()> acts[] = {
        [&] { KeyTable(*store_).SetLabel("K2", "label"); },
        [&] { KeyTable(*store_).SetInserted("K2", true); },
        [&] { KeyTable(*store_).Delete("K2"); },
        [&] { KeyTable(*store_).Erase("K2"); },
        [&] {
            ObjectTable(*store_).Set("K2", {"name", 1, "value"});
        },
        [&] { PinTable(*store_).Seal("K2"); },
        [&] { PinTable(*store_).SetSeal("K2", SomeSeal()); },
        [&] { PinTable(*store_).TakeTry("K2"); },
        [&] { PinTable(*store_).ResetTries("K2"); },
        [&] { UnlockKey(*store_, "K2"); },
        [&] { QuestionTable(*store_).Decide("K2", Button::kPress); }};
    for (const auto& act : acts) EXPECT_EQ(OutcomeOf(act), Outcome(kKeyAbsent, "K2"));
    const std::function<void()> ofPairs[] = {[&] { PairTable(*store_).WrappedPrivate(77); },
                                             [&] { PairTable(*store_).SetWrappedPrivate(77, {1}); },
                                             [&] { PairTable(*store_).SetCertificate(77, {1}); }};
    for (const auto& act : ofPairs) EXPECT_EQ(OutcomeOf(act), Outcome(kNoKeyPair, "77"));
    EXPECT_EQ(store_->Version(), 2) << "something was changed";
}

TEST_F(TablesTest, a_key_moves_to_a_slot_that_is_free_or_of_one_that_is_out) {
    for (std::uint32_t slot = 1; slot <= 4; ++slot) {
        Add(Record("K" + std::to_string(slot), slot, slot == 1));
    }
    KeyTable keys(*store_);
    EXPECT_EQ(OutcomeOf([&] { keys.SetInserted("K4", true, 1); }),
              Outcome(kBadArgument, "slot 1 is taken by K1"));
    EXPECT_TRUE(keys.SetInserted("K4", true, 3));
    EXPECT_EQ(Slots(), "K1@1 K2@2 K4@3 K3@5 ") << "the lowest slot that was free";
    EXPECT_TRUE(keys.SetInserted("K3", true, 9));
    EXPECT_TRUE(keys.SetInserted("K2", true, 2)) << "its own";
    EXPECT_FALSE(keys.SetInserted("K2", true, 8)) << "it is in";
    EXPECT_EQ(Slots(), "K1@1 K2@2 K4@3 K3@9 ");
    EXPECT_EQ(keys.LowestFreeSlot(), 4U);
    EXPECT_TRUE(Key("K2").inserted);
    EXPECT_EQ(Key("K2").insertions, 4) << "one event when it was made, and one of its own";
    const std::vector<Event> events = EventLog(*store_).After(1);
    ASSERT_EQ(events.size(), 3U);
    EXPECT_EQ(events[1].slot, 9U);
    EXPECT_EQ(events[1].serial, "K3");
    EXPECT_EQ(events[1].mediaId, "M-K3");
    EXPECT_EQ(events[1].kind, EventKind::kInserted);
    EXPECT_EQ(events[1].number, 3);
}

TEST_F(TablesTest, objects_come_back_in_order_and_each_takes_the_place_of_its_like) {
    Add(Record("K1", 1));
    Add(Record("K2", 2));
    ObjectTable objects(*store_);
    EXPECT_EQ(OutcomeOf([&] {
                  objects.Set("K1", {"name", 1, std::string(260, 'v')});
              }).first,
              kTooLong);
    objects.Set("K1", {"name", 4294967295U, std::string(259, 'v')});
    objects.Set("K1", {"name", 7, "seven"});
    objects.Set("K1", {"a name", 9, "old"});
    objects.Set("K1", {"a name", 9, "new"});
    objects.Set("K2", {"name", 7, "another's"});
    const std::vector<DataObject> all = objects.Of("K1");
    ASSERT_EQ(all.size(), 3U);
    EXPECT_EQ(all[0].name + all[0].value, "a namenew");
    EXPECT_EQ(all[1].number, 7U);
    EXPECT_EQ(all[1].value, "seven");
    EXPECT_EQ(all[2].number, 4294967295U);
    EXPECT_EQ(objects.Get("K1", "name", 4294967295U), std::string(259, 'v'));
    EXPECT_EQ(objects.Get("K2", "name", 7), "another's");
    EXPECT_FALSE(objects.Get("K2", "a name", 9));
}

TEST_F(TablesTest, pairs_come_back_newest_first) {
    Add(Record("K1", 1));
    PairTable pairs(*store_);
    const std::int64_t first =
        pairs.Add("K1", {0, Role::kTemporary, Algorithm::kRsa, {1}, {2}, {}});
    const std::int64_t second =
        pairs.Add("K1", {0, Role::kEncryption, Algorithm::kSm2, {3}, {4}, {5, 6}});
    const std::vector<PairRecord> all = pairs.Of("K1");
    ASSERT_EQ(all.size(), 2U);
    EXPECT_EQ(all[0].id, second);
    EXPECT_EQ(all[0].role, Role::kEncryption);
    EXPECT_EQ(all[0].algorithm, Algorithm::kSm2);
    EXPECT_EQ(all[0].publicKey, Bytes{3});
    EXPECT_EQ(all[0].certificate, (Bytes{5, 6}));
    EXPECT_EQ(all[1].id, first);
    EXPECT_EQ(all[1].role, Role::kTemporary);
    EXPECT_EQ(all[1].algorithm, Algorithm::kRsa);
    EXPECT_TRUE(all[1].certificate.empty());
    EXPECT_EQ(pairs.WrappedPrivate(first), Bytes{2});
    pairs.SetWrappedPrivate(first, {7});
    pairs.SetCertificate(first, {8});
    EXPECT_EQ(pairs.WrappedPrivate(first), Bytes{7});
    EXPECT_EQ(pairs.WrappedPrivate(second), Bytes{4});
    EXPECT_EQ(pairs.Of("K1")[1].certificate, Bytes{8});
    pairs.Delete(first);
    EXPECT_EQ(pairs.Of("K1").size(), 1U);
}

TEST_F(TablesTest, a_pin_is_sealed_counted_and_given_back) {
    KeyRecord key = Record("K1", 1);
    key.triesLeft = 2;
    key.maxTries = 3;
    Add(key);
    PinTable pins(*store_);
    const auto seal = [&] {
        const PinSeal now = pins.Seal("K1");
        return std::to_string(now.salt.size()) + " " + std::to_string(static_cast<int>(now.kdf)) +
               " " + std::to_string(now.cost) + " " + std::to_string(now.block) + " " +
               std::to_string(now.parallel) + " " + std::to_string(now.sealed.size());
    };
    EXPECT_EQ(seal(), "3 1 1024 8 5 2");
    EXPECT_EQ(pins.TakeTry("K1"), 1);
    EXPECT_EQ(pins.TakeTry("K1"), 0);
    EXPECT_EQ(OutcomeOf([&] { pins.TakeTry("K1"); }), Outcome(kPinLocked, "K1"));
    pins.ResetTries("K1");
    EXPECT_EQ(Key("K1").triesLeft, 3);
    pins.SetTries("K1", 1);
    EXPECT_EQ(Key("K1").triesLeft, 1);
    pins.SetSeal("K1", {{1}, Kdf::kScrypt, 2, 3, 4, {5, 6, 7}});
    EXPECT_EQ(seal(), "1 2 2 3 4 3");
    EXPECT_EQ(Key("K1").triesLeft, 3);
    EXPECT_EQ(Key("K1").pinVersion, 1);
    pins.EndVerifications("K1");
    EXPECT_EQ(Key("K1").pinVersion, 2);
    pins.TakeTry("K1");
    UnlockKey(*store_, "K1");
    EXPECT_EQ(Key("K1").triesLeft, 3);
}

TEST_F(TablesTest, a_question_waits_until_it_is_decided_closed_or_too_old) {
    Add(Record("K1", 1));
    Add(Record("K2", 2));
    QuestionTable questions(*store_);
    const auto now = [] { return static_cast<std::int64_t>(std::time(nullptr)) * 1000; };
    const std::int64_t begin = now();
    const std::int64_t first = questions.Open("K1", milliseconds(50000));
    const std::int64_t second = questions.Open("K1", milliseconds(50000));
    const std::int64_t old = questions.Open("K1", milliseconds(0));
    ASSERT_EQ(questions.Waiting("K1").size(), 2U);
    EXPECT_TRUE(questions.Waiting("K2").empty());
    const Question waiting = questions.Waiting("K1")[0];
    EXPECT_EQ(waiting.id, first);
    EXPECT_EQ(waiting.serial, "K1");
    EXPECT_GE(waiting.deadline, begin + 50000);
    EXPECT_LT(waiting.deadline, now() + 52000);
    EXPECT_FALSE(questions.Answer(first));
    questions.Close(second);
    EXPECT_EQ(questions.Decide("K1", Button::kAsk), 0) << "that is no answer";
    EXPECT_EQ(Key("K1").button, Button::kAsk);
    EXPECT_EQ(questions.Decide("K1", Button::kRefuse), 1);
    EXPECT_EQ(questions.Answer(first), Button::kRefuse);
    EXPECT_FALSE(questions.Answer(old));
    EXPECT_EQ(Key("K1").button, Button::kAsk) << "it was the question's";
    EXPECT_EQ(Key("K2").button, Button::kPress);
    EXPECT_TRUE(questions.Waiting("K1").empty());
    EXPECT_EQ(questions.Decide("K1", Button::kPress), 0);
    EXPECT_EQ(Key("K1").button, Button::kPress);
    EXPECT_EQ(Number("SELECT count(*) FROM prompts"), 2);
    questions.Open("K1", milliseconds(50000));
    EXPECT_EQ(Number("SELECT count(*) FROM prompts"), 2) << "what is too old goes";
}

TEST_F(TablesTest, a_screen_shows_what_came_last_and_up_to_1024_bytes) {
    Screen screen(*store_);
    EXPECT_EQ(screen.Text("K1"), "");
    screen.Show("K1", "something long");
    screen.Show("K1", "short");
    screen.Show("K2", "another");
    EXPECT_EQ(screen.Text("K1"), "short");
    EXPECT_EQ(screen.Text("K2"), "another");
    screen.Show("K1", std::string(1024, 's'));
    EXPECT_EQ(OutcomeOf([&] { screen.Show("K1", std::string(1025, 't')); }).first, kTooLong);
    EXPECT_EQ(screen.Text("K1"), std::string(1024, 's'));
    EXPECT_EQ(std::filesystem::file_size(home_ + "/screen-K1"), 1024U);
    screen.Forget("K1");
    EXPECT_EQ(screen.Text("K1"), "");
    screen.Show("K1", "once more");
    EXPECT_EQ(screen.Text("K1"), "once more");
    folder_.Write("home/screen-K3", "of another size");
    EXPECT_EQ(screen.Text("K3"), "of another size");
    std::filesystem::create_symlink("screen-K4", home_ + "/screen-K4");
    const Outcome unreachable(kStateUnreachable, home_ + "/screen-K4: " + std::strerror(ELOOP));
    EXPECT_EQ(OutcomeOf([&] { screen.Text("K4"); }), unreachable);
    EXPECT_EQ(OutcomeOf([&] { screen.Show("K4", "text"); }), unreachable);
    screen.Show("K2", "still there");
    EXPECT_EQ(screen.Text("K2"), "still there");
}

TEST_F(TablesTest, what_is_made_up_for_a_key_says_what_it_is) {
    NewKey wanted;
    wanted.pinCost = {1024, 8, 1};
    wanted.inserted = false;
    wanted.triesLeft = 2;
    const auto isDigits = [](const std::string& text) {
        return text.find_first_not_of("0123456789") == std::string::npos;
    };
    for (int i = 0; i < 20; ++i) {
        const KeyRecord made = CreateKey(*store_, wanted, "123456");
        EXPECT_EQ(made.slot, static_cast<std::uint32_t>(i) + 1);
        EXPECT_EQ(made.serial.substr(0, 2), "KS");
        EXPECT_EQ(made.mediaId.substr(0, 2), "KM");
        EXPECT_EQ(made.serial.size(), 12U);
        EXPECT_EQ(made.mediaId.size(), 12U);
        EXPECT_TRUE(isDigits(made.serial.substr(2))) << made.serial;
        EXPECT_TRUE(isDigits(made.mediaId.substr(2))) << made.mediaId;
        EXPECT_EQ(Key(made.serial).label, made.serial);
        EXPECT_EQ(Key(made.serial).triesLeft, 2);
        EXPECT_FALSE(Key(made.serial).inserted);
    }
    wanted.serial = "K1";
    wanted.label = "mine";
    wanted.mediaId = "M1";
    wanted.slot = 77;
    wanted.certificates = {1000000000, 2000000000};
    EXPECT_EQ(CreateKey(*store_, wanted, "123456").slot, 77U);
    EXPECT_EQ(Key("K1").label + Key("K1").mediaId, "mineM1");
    EXPECT_EQ(PinTable(*store_).Seal("K1").cost, 1024);
    EXPECT_EQ(PairTable(*store_).Of("K1").size(), 2U);
    EXPECT_EQ(FindDamage(home_), std::vector<std::string>());
}

}  // namespace
