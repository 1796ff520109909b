// What a key keeps beside its pairs, through the exports: label, data objects, certificates, and
// the locale of its messages.
#include <algorithm>

#include "key_test.h"
#include "softkey/codes.h"

namespace {

using namespace flow;

constexpr char kName[] = "account-no-1";  // of a data object, 10 to 16 characters

class Contents : public KeyTest {
protected:
    static Answer Label() {
        char text[520] = "";
        int length = sizeof text;
        const int code = GetLabel(kSerial, text, &length);
        return {code, text};
    }

    static Answer Data(unsigned number) {
        char text[300] = "";
        int length = sizeof text;
        const int code = GetData(kName, number, text, &length);
        return {code, text};
    }

    static Answer Information(unsigned certType) {
        char text[1281] = "";
        unsigned length = 1280;
        const int code = GetCertInfo(kSerial, certType, text, &length);
        return {code, text};
    }
};

TEST_F(Contents, label_is_kept_for_the_next_process) {
    const Finished first =
        InAnotherProcess([](std::string&) { return SetLabel(kSerial, "Till 4"); });
    ASSERT_EQ(first.status, 0);
    EXPECT_EQ(Label().text, "Till 4");
    int length = 0;
    EXPECT_EQ(GetLabel(kSerial, nullptr, &length), 0);
    EXPECT_EQ(length, 7);
}

TEST_F(Contents, label_beyond_the_keys_room_is_refused_and_the_old_one_stays) {
    ASSERT_EQ(SetLabel(kSerial, "Till 4"), 0);
    EXPECT_EQ(SetLabel(kSerial, std::string(512, 'x').c_str()), softkey::kTooLong);
    EXPECT_EQ(Label().text, "Till 4");
    EXPECT_EQ(SetLabel(kSerial, std::string(511, 'x').c_str()), 0);
    EXPECT_EQ(Label().text, std::string(511, 'x'));
}

TEST_F(Contents, data_object_is_found_by_name_and_number) {
    ASSERT_EQ(SetData(kName, 1, "first"), 0);
    ASSERT_EQ(SetData(kName, 2, "second"), 0);
    EXPECT_EQ(Data(1).text, "first");
    EXPECT_EQ(Data(2).text, "second");
    EXPECT_EQ(Data(3).code, softkey::kDataNotFound);
}

TEST_F(Contents, data_object_of_the_longest_value_is_given_back_whole) {
    const std::string longest(259, 'v');
    ASSERT_EQ(SetData(kName, 1, longest.c_str()), 0);
    EXPECT_EQ(Data(1).text, longest);
    EXPECT_EQ(SetData(kName, 1, (longest + "v").c_str()), softkey::kTooLong);
    EXPECT_EQ(Data(1).text, longest);
}

TEST_F(Contents, information_of_a_certificate_names_its_owner) {
    Enrol();
    const Answer signing = Information(kSigning);
    ASSERT_EQ(signing.code, 0);
    EXPECT_NE(signing.text.find("type=sign\nalgorithm=SM2\n"), std::string::npos) << signing.text;
    EXPECT_NE(signing.text.find("subject=CN=Signer\n"), std::string::npos) << signing.text;
    EXPECT_NE(signing.text.find("issuer=CN=Flow CA"), std::string::npos) << signing.text;
    EXPECT_NE(Information(kEncryption).text.find("subject=CN=Recipient\n"), std::string::npos);
}

TEST_F(Contents, deleted_certificate_takes_its_pair_along_and_leaves_the_other) {
    Enrol();
    ASSERT_EQ(DelCertAndTempKey(kSerial, kSigning, kSm2), 0);
    EXPECT_EQ(ReadCertificate(kSerial, kSigning, kSm2).code, softkey::kNoCertificate);
    EXPECT_EQ(SignText(kSerial, kSm2, kSm3, "text", "sign?").code, softkey::kNoKeyPair);
    EXPECT_EQ(ReadCertificate(kSerial, kEncryption, kSm2).text, encryptionCertificate_);
    EXPECT_EQ(DelCertAndTempKey(kSerial, kSigning, kSm2), softkey::kNoCertificate);
}

TEST_F(Contents, language_and_charset_change_the_messages) {
    // Either order is a reading; what the exports do with their two arguments is the library's.
    EXPECT_EQ(Message(softkey::kPinWrong).text, "PIN 码错误");
    ASSERT_EQ(SetCharset("GB18030", kSerial), 0);
    EXPECT_EQ(Message(softkey::kPinWrong).text, "PIN \xC2\xEB\xB4\xED\xCE\xF3");
    ASSERT_EQ(SetLanguage("en_US", kSerial), 0);
    EXPECT_EQ(Message(softkey::kPinWrong).text, "the PIN is wrong");
    EXPECT_EQ(SetLanguage("tlh", kSerial), softkey::kUnknownLocale);
}

}  // namespace
