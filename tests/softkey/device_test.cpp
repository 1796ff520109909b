// Which key is there, its small texts, and the language of the messages.
#include <sys/stat.h>

#include <array>
#include <chrono>
#include <cstring>
#include <future>
#include <thread>

#include "softkey/store/key_admin.h"
#include "softkey/store/keys.h"
#include "token_fixture.h"

using namespace softkey;

namespace {

class DeviceTest : public TokenTest {
protected:
    Result Serial() {
        std::uint32_t state = 77;
        _S_DEV_CONFIG record{};
        char serial[1024] = {};
        const int code = token.CheckDeviceEx(&state, &record, 1, serial);
        state_ = state;
        mediaId_ = std::string(record.szMediaId, strnlen(record.szMediaId, 16));
        return {code, serial};
    }
    std::uint32_t state_ = 0;
    std::string mediaId_;
};

TEST_F(DeviceTest, the_key_that_is_present_is_told) {
    CreateKey();
    EXPECT_EQ(Serial().text, kSerial);
    EXPECT_EQ(state_, 1U);
    EXPECT_EQ(mediaId_, "MEDIA1");
}

TEST_F(DeviceTest, a_media_id_of_sixteen_characters_fills_its_field) {
    CreateKey(kSerial, "0123456789ABCDEF");
    EXPECT_EQ(Serial().code, kOk);
    EXPECT_EQ(mediaId_, "0123456789ABCDEF");
    char mediaId[17] = {};
    EXPECT_EQ(token.GetMediaID(kSerial, mediaId), kOk);
    EXPECT_STREQ(mediaId, "0123456789ABCDEF");
}

TEST_F(DeviceTest, without_a_state_folder_no_key_is_present_and_none_is_made) {
    EXPECT_EQ(Serial().code, kKeyAbsent);
    EXPECT_EQ(state_, 0U);
    EXPECT_EQ(token.VerifyPIN(kSerial), kKeyAbsent);
    struct stat status {};
    EXPECT_NE(stat(Home().c_str(), &status), 0);
}

TEST_F(DeviceTest, a_key_that_was_pulled_out_is_absent) {
    CreateKey();
    KeyTable(*OpenStore()).SetInserted(kSerial, false);
    EXPECT_EQ(Serial().code, kKeyAbsent);
    EXPECT_EQ(state_, 0U);
    char label[512] = {};
    char serial[] = "KS0000000001";
    EXPECT_EQ(token.GetLabel(serial, label), kKeyAbsent);
    KeyTable(*OpenStore()).SetInserted(kSerial, true);
    EXPECT_EQ(Serial().code, kOk);
}

TEST_F(DeviceTest, a_change_that_waited_for_the_keys_removal_is_not_made) {
    CreateKey();
    const auto store = OpenStore();
    std::future<int> labelled;
    {
        Transaction removal(*store);
        KeyTable(*store).SetInserted(kSerial, false);
        labelled =
            std::async(std::launch::async, [this] { return token.SetLabel(kSerial, "new"); });
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        removal.Commit();
    }
    const int code = labelled.get();
    EXPECT_TRUE(code == kKeyRemoved || code == kKeyAbsent) << code << ", absent if it began late";
    EXPECT_NE(KeyTable(*store).Find(kSerial)->label, "new");
}

// Also when nobody looked in between.
TEST_F(DeviceTest, a_key_that_was_deleted_and_made_again_is_another_key) {
    CreateKey();
    for (const bool in : {true, false}) {
        ASSERT_EQ(token.VerifyPIN(kSerial), kOk);
        ASSERT_EQ(Request(1, 2, 3).code, kOk);
        const std::int64_t before = KeyTable(*OpenStore()).Find(kSerial)->insertions;
        if (!in) KeyTable(*OpenStore()).SetInserted(kSerial, false);
        KeyTable(*OpenStore()).Delete(kSerial);
        CreateKey();
        EXPECT_GT(KeyTable(*OpenStore()).Find(kSerial)->insertions, before);
        std::array<std::uint8_t, 8> info{};
        std::uint32_t length = info.size();
        ASSERT_EQ(token.GetPinInfo(kSerial, info.data(), &length), kOk);
        EXPECT_EQ(info[3], 0) << "the PIN of the earlier key counts";
    }
}

TEST_F(DeviceTest, several_keys_must_be_named) {
    CreateKey();
    CreateKey("KS0000000002", "MEDIA2");
    EXPECT_EQ(Serial().code, kSeveralKeys);
    EXPECT_EQ(state_, 2U);
    EXPECT_EQ(token.VerifyPIN(""), kSeveralKeys);
    EXPECT_EQ(token.VerifyPIN("KS0000000002"), kOk);
    EXPECT_EQ(token.VerifyPIN("KS0000000003"), kKeyAbsent);
    KeyTable(*OpenStore()).SetInserted("KS0000000002", false);
    EXPECT_EQ(Serial().text, kSerial);
}

TEST_F(DeviceTest, one_record_at_a_time_is_told) {
    CreateKey();
    std::uint32_t state = 0;
    _S_DEV_CONFIG record{};
    char serial[1024] = {};
    EXPECT_EQ(token.CheckDeviceEx(&state, &record, 2, serial), kBadArgument);
    EXPECT_EQ(token.CheckDeviceEx(&state, &record, 1, nullptr), kBadArgument);
}

TEST_F(DeviceTest, a_label_is_kept) {
    CreateKey();
    char serial[] = "KS0000000001";
    char label[512] = {};
    EXPECT_EQ(token.SetLabel(kSerial, "my \xE5\xAF\x86\xE9\x92\xA5"), kOk);
    EXPECT_EQ(token.GetLabel(serial, label), kOk);
    EXPECT_STREQ(label, "my \xE5\xAF\x86\xE9\x92\xA5");
}

TEST_F(DeviceTest, a_label_of_511_bytes_is_kept_and_a_longer_one_refused) {
    CreateKey();
    char serial[] = "KS0000000001";
    char label[512] = {};
    EXPECT_EQ(token.SetLabel(kSerial, std::string(511, 'l').c_str()), kOk);
    EXPECT_EQ(token.SetLabel(kSerial, std::string(512, 'm').c_str()), kTooLong);
    EXPECT_EQ(token.GetLabel(serial, label), kOk);
    EXPECT_EQ(std::string(label), std::string(511, 'l'));
    EXPECT_EQ(token.SetLabel(kSerial, nullptr), kBadArgument);
}

TEST_F(DeviceTest, data_objects_are_kept_by_name_and_number) {
    CreateKey();
    char value[260] = {};
    EXPECT_EQ(token.GetData("0123456789", 0, value), kDataNotFound);
    EXPECT_EQ(token.SetData("0123456789", 0, "zero"), kOk);
    EXPECT_EQ(token.SetData("0123456789", 7, "seven"), kOk);
    EXPECT_EQ(token.GetData("0123456789", 0, value), kOk);
    EXPECT_STREQ(value, "zero");
    EXPECT_EQ(token.GetData("0123456789", 7, value), kOk);
    EXPECT_STREQ(value, "seven");
    EXPECT_EQ(token.SetData("0123456789", 0, ""), kOk);
    EXPECT_EQ(token.GetData("0123456789", 0, value), kOk);
    EXPECT_STREQ(value, "");
}

TEST_F(DeviceTest, a_value_that_could_not_be_read_back_is_refused) {
    CreateKey();
    char value[260] = {};
    EXPECT_EQ(token.SetData("0123456789", 0, std::string(259, 'v').c_str()), kOk);
    EXPECT_EQ(token.SetData("0123456789", 0, std::string(260, 'w').c_str()), kTooLong);
    EXPECT_EQ(token.GetData("0123456789", 0, value), kOk);
    EXPECT_EQ(std::string(value), std::string(259, 'v'));
}

TEST_F(DeviceTest, names_of_other_lengths_are_refused) {
    CreateKey();
    char value[260] = {};
    for (const std::string& name : {std::string(9, 'n'), std::string(17, 'n'), std::string()}) {
        EXPECT_EQ(token.SetData(name.c_str(), 0, "v"), kBadArgument);
        EXPECT_EQ(token.GetData(name.c_str(), 0, value), kBadArgument);
    }
    EXPECT_EQ(token.SetData(nullptr, 0, "v"), kBadArgument);
    EXPECT_EQ(token.SetData(std::string(16, 'n').c_str(), 0, "v"), kOk);
}

TEST_F(DeviceTest, messages_follow_language_and_charset) {
    EXPECT_EQ(token.UOS_SetLanguage("", "en_US"), kOk);
    EXPECT_STREQ(token.X_ErrorConvert_UOS(kPinWrong), "the PIN is wrong");
    EXPECT_EQ(token.UOS_SetLanguage("", "zh_CN.UTF-8"), kOk);
    EXPECT_STREQ(token.X_ErrorConvert_UOS(kPinWrong), "PIN 码错误");
    EXPECT_EQ(token.UOS_SetCharset("", "gb18030"), kOk);
    EXPECT_STREQ(token.X_ErrorConvert_UOS(kPinWrong), "PIN \xC2\xEB\xB4\xED\xCE\xF3");
    EXPECT_EQ(token.UOS_SetCharset(nullptr, "UTF-8"), kOk);
}

TEST_F(DeviceTest, every_name_of_a_language_or_a_charset_is_taken_in_any_case) {
    struct Name {
        int (*set)(const char*, const char*);
        const char* before;
        const char* name;
        const char* message;
    };
    const char* const inGb18030 = "PIN \xC2\xEB\xB4\xED\xCE\xF3";
    std::vector<Name> names;
    for (const char* name : {"zh_CN", "zh-cn", "ZH", "0", "1", "zh_CN.GB18030"})
        names.push_back({token.UOS_SetLanguage, "en", name, "PIN 码错误"});
    for (const char* name : {"en_US", "EN-us", "en_GB", "en", "2", "en_US.UTF-8"})
        names.push_back({token.UOS_SetLanguage, "zh", name, "the PIN is wrong"});
    for (const char* name : {"UTF-8", "utf8", "0"})
        names.push_back({token.UOS_SetCharset, "GBK", name, "PIN 码错误"});
    for (const char* name : {"GB18030", "gb-18030", "gbk", "GB2312", "1"})
        names.push_back({token.UOS_SetCharset, "UTF-8", name, inGb18030});
    for (const Name& one : names) {
        ASSERT_EQ(token.UOS_SetLanguage("", "zh"), kOk);
        ASSERT_EQ(token.UOS_SetCharset("", "UTF-8"), kOk);
        ASSERT_EQ(one.set("", one.before), kOk);
        EXPECT_EQ(one.set("", one.name), kOk) << one.name;
        EXPECT_STREQ(token.X_ErrorConvert_UOS(kPinWrong), one.message) << one.name;
    }
    EXPECT_EQ(token.UOS_SetLanguage("", "zh"), kOk);
    EXPECT_EQ(token.UOS_SetCharset("", "UTF-8"), kOk);
}

TEST_F(DeviceTest, unknown_locales_are_refused_and_change_nothing) {
    EXPECT_EQ(token.UOS_SetLanguage("", "en"), kOk);
    EXPECT_EQ(token.UOS_SetLanguage("", "klingon"), kUnknownLocale);
    EXPECT_EQ(token.UOS_SetCharset("", "EBCDIC"), kUnknownLocale);
    EXPECT_EQ(token.UOS_SetCharset("", ""), kUnknownLocale);
    EXPECT_EQ(token.UOS_SetLanguage("", nullptr), kBadArgument);
    EXPECT_STREQ(token.X_ErrorConvert_UOS(kOk), "success");
    EXPECT_EQ(token.UOS_SetLanguage("", "0"), kOk);
}

TEST_F(DeviceTest, every_code_has_a_message) {
    for (const std::int32_t code : {0, -1, -101, 0x5B12, 0x7FFFFFFF, -0x7FFFFFFF - 1}) {
        ASSERT_NE(token.X_ErrorConvert_UOS(code), nullptr);
        EXPECT_STRNE(token.X_ErrorConvert_UOS(code), "");
    }
}

TEST_F(DeviceTest, folder_and_files_belong_to_their_owner_alone) {
    CreateKey();
    ASSERT_EQ(token.VerifyPIN(kSerial), kOk);
    ASSERT_EQ(Request(1, 2, 3).code, kOk);
    ASSERT_EQ(CriticalSign("x").code, kOk);
    EXPECT_EQ(Succeed("stat -c %a home"), "700\n");
    EXPECT_EQ(Succeed("stat -c %a home/* | sort -u"), "600\n");
}

TEST_F(DeviceTest, another_folder_holds_other_keys) {
    CreateKey();
    ASSERT_EQ(token.VerifyPIN(kSerial), kOk);
    setenv("KESTA_SOFTKEY_HOME", Path("other").c_str(), 1);
    EXPECT_EQ(Serial().code, kKeyAbsent);
    setenv("KESTA_SOFTKEY_HOME", Home().c_str(), 1);
    EXPECT_EQ(Serial().code, kOk);
}

TEST_F(DeviceTest, a_folder_that_was_made_anew_is_noticed) {
    CreateKey();
    ASSERT_EQ(Serial().text, kSerial);
    Succeed("rm -r home");
    EXPECT_EQ(Serial().code, kKeyAbsent);
    CreateKey("KS0000000009", "MEDIA9");
    EXPECT_EQ(Serial().text, "KS0000000009");
}

TEST_F(DeviceTest, another_folders_key_of_the_same_name_is_another_key) {
    CreateKey();
    ASSERT_EQ(token.VerifyPIN(kSerial), kOk);
    softkey::NewKey wanted;
    wanted.serial = kSerial;
    wanted.pinCost = {1024, 8, 1};
    softkey::CreateKey(*Store::Open(Path("other")), wanted, "654321");
    setenv("KESTA_SOFTKEY_HOME", Path("other").c_str(), 1);
    std::array<std::uint8_t, 8> info{};
    std::uint32_t length = info.size();
    ASSERT_EQ(token.GetPinInfo(kSerial, info.data(), &length), kOk);
    EXPECT_EQ(info[3], 0) << "the PIN of the other key counts";
    EXPECT_EQ(token.VerifyPIN(kSerial), kPinWrong);
    setenv("KESTA_SOFTKEY_HOME", Home().c_str(), 1);
}

TEST_F(DeviceTest, names_of_objects_count_to_their_last_character) {
    CreateKey();
    char value[260] = {};
    for (const std::size_t size : {10U, 16U}) {
        const std::string name(size, 'n');
        const std::string other = name.substr(1) + "o";
        EXPECT_EQ(token.SetData(name.c_str(), 0, "one"), kOk);
        EXPECT_EQ(token.SetData(other.c_str(), 0, "two"), kOk);
        EXPECT_EQ(token.GetData(name.c_str(), 0, value), kOk);
        EXPECT_STREQ(value, "one");
    }
    EXPECT_EQ(token.SetData("0123456789", 0, nullptr), kBadArgument);
    EXPECT_EQ(token.GetData("0123456789", 0, nullptr), kDataNotFound);
    EXPECT_EQ(token.GetData(std::string(16, 'n').c_str(), 0, nullptr), kBadArgument);
}

TEST_F(DeviceTest, no_more_is_written_than_each_text_and_its_nul) {
    CreateKey();
    const auto written = [](const char* text) {
        return std::string(text, std::strlen(text) + 1) + "#";
    };
    std::string buffer(64, '#');
    std::uint32_t state = 0;
    ASSERT_EQ(token.CheckDeviceEx(&state, nullptr, 1, buffer.data()), kOk);
    EXPECT_EQ(buffer.substr(0, 14), written(kSerial));
    buffer.assign(64, '#');
    ASSERT_EQ(token.GetMediaID(kSerial, buffer.data()), kOk);
    EXPECT_EQ(buffer.substr(0, 8), written("MEDIA1"));
    std::string serial = kSerial;
    buffer.assign(64, '#');
    ASSERT_EQ(token.GetLabel(serial.data(), buffer.data()), kOk);
    EXPECT_EQ(buffer.substr(0, 14), written(kSerial));
}

}  // namespace
