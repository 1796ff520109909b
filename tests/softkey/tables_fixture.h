// A state folder of the test's own, and its tables.
#ifndef TESTS_SOFTKEY_TABLES_FIXTURE_H
#define TESTS_SOFTKEY_TABLES_FIXTURE_H

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "outcome.h"
#include "softkey/store/database.h"
#include "softkey/store/keys.h"
#include "softkey/store/store.h"
#include "system_calls.h"
#include "temporary_folder.h"

class TablesTest : public testing::Test {
protected:
    ~TablesTest() override { SystemCalls::Reset(); }

    static softkey::PinSeal SomeSeal() {
        return {{1, 2, 3}, softkey::Kdf::kPbkdf2, 1024, 8, 5, {4, 5}};
    }
    static softkey::KeyRecord Record(const std::string& serial, std::uint32_t slot,
                                     bool inserted = true) {
        softkey::KeyRecord key;
        key.serial = serial;
        key.label = "label of " + serial;
        key.mediaId = "M-" + serial;
        key.slot = slot;
        key.inserted = inserted;
        return key;
    }
    void Add(const softkey::KeyRecord& key) { softkey::KeyTable(*store_).Add(key, SomeSeal()); }
    softkey::Code CodeOf(const softkey::KeyRecord& key) {
        return OutcomeOf([&] { Add(key); }).first;
    }
    softkey::KeyRecord Key(const std::string& serial) {
        return *softkey::KeyTable(*store_).Find(serial);
    }
    // The serial numbers in the order of their slots.
    std::string Slots() {
        std::string text;
        for (const softkey::KeyRecord& key : softkey::KeyTable(*store_).All()) {
            text += key.serial + "@" + std::to_string(key.slot) + " ";
        }
        return text;
    }
    void Execute(const char* sql) {
        softkey::Transaction change(*store_);
        store_->database().Execute(sql);
        change.Commit();
    }
    std::int64_t Number(const char* sql) {
        softkey::Statement row = store_->database().Prepare(sql);
        row.Step();
        return row.Int(0);
    }

    const TemporaryFolder folder_;
    const std::string home_ = folder_.File("home");
    std::unique_ptr<softkey::Store> store_ = softkey::Store::Open(home_);
};

#endif
