// The PIN through the exports: information, verification, change, caching, initialisation.
#include <array>

#include "key_test.h"
#include "softkey/codes.h"

namespace {

using namespace flow;

// Places in the eight bytes of PIN information.
enum PinByte { kTriesLeft, kTriesAtMost, kLocked, kVerified, kCaching, kShortest, kLongest, kZero };

class Pin : public KeyTest {
protected:
    ~Pin() override { unsetenv("KESTA_SOFTKEY_NEW_PIN"); }

    std::array<int, 8> Information() const {
        unsigned char bytes[10];
        std::fill(std::begin(bytes), std::end(bytes), static_cast<unsigned char>(0xEE));
        unsigned length = 8;
        EXPECT_EQ(GetPinInfo(kSerial, bytes, &length), 0);
        EXPECT_EQ(length, 8U);
        EXPECT_EQ(bytes[8], 0xEE);
        std::array<int, 8> information{};
        std::copy_n(bytes, information.size(), information.begin());
        return information;
    }

    static void EnterNewPin(const char* pin) { setenv("KESTA_SOFTKEY_NEW_PIN", pin, 1); }
};

TEST_F(Pin, information_of_a_new_key_has_all_tries_and_the_bounds_of_a_PIN) {
    EXPECT_EQ(Information(), (std::array<int, 8>{6, 6, 0, 0, 0, 6, 16, 0}));
}

TEST_F(Pin, wrong_PIN_costs_a_try_and_the_right_one_gives_it_back) {
    EnterPin("000000");
    EXPECT_EQ(VerifyPIN(kSerial), softkey::kPinWrong);
    EXPECT_EQ(VerifyPIN(kSerial), softkey::kPinWrong);
    EXPECT_EQ(Information()[kTriesLeft], 4);
    EnterPin(kPin);
    EXPECT_EQ(VerifyPIN(kSerial), 0);
    EXPECT_EQ(Information()[kTriesLeft], 6);
    EXPECT_EQ(Information()[kVerified], 1);
}

TEST_F(Pin, sixth_wrong_PIN_locks_the_key_against_the_right_one) {
    EnterPin("000000");
    for (int tries = 1; tries <= 6; ++tries) VerifyPIN(kSerial);
    EXPECT_EQ(Information()[kTriesLeft], 0);
    EXPECT_EQ(Information()[kLocked], 1);
    EnterPin(kPin);
    EXPECT_EQ(VerifyPIN(kSerial), softkey::kPinLocked);
    Softkey({"unlock"});
    EXPECT_EQ(VerifyPIN(kSerial), 0);
}

TEST_F(Pin, no_PIN_entered_is_a_cancel) {
    unsetenv("KESTA_SOFTKEY_PIN");
    EXPECT_EQ(VerifyPIN(kSerial), softkey::kPinCancelled);
    EXPECT_EQ(Information()[kTriesLeft], 6);
}

TEST_F(Pin, change_asks_for_the_old_one_first) {
    EnterPin("000000");
    EnterNewPin("97531000");
    EXPECT_EQ(ChangePin(kSerial), softkey::kPinWrong);
    EnterPin(kPin);
    EXPECT_EQ(ChangePin(kSerial), 0);
    EXPECT_EQ(VerifyPIN(kSerial), softkey::kPinWrong);
    EnterPin("97531000");
    EXPECT_EQ(VerifyPIN(kSerial), 0);
}

TEST_F(Pin, cached_PIN_is_not_asked_again_until_it_is_removed) {
    char pin[] = "246810";
    EnterPin("000000");
    ASSERT_EQ(TestVerifyAndCachePin(kSerial, pin), 0);
    EXPECT_EQ(Information()[kCaching], 1);
    EXPECT_EQ(VerifyPIN(kSerial), 0);
    ASSERT_EQ(RemovePinCache(), 0);
    EXPECT_EQ(VerifyPIN(kSerial), softkey::kPinWrong);
}

TEST_F(Pin, flag_switches_caching_on_and_off) {
    ASSERT_EQ(Initialize(), 0);
    ASSERT_EQ(SetCachePinFlag(kSerial, 1), 0);
    ASSERT_EQ(VerifyPIN(kSerial), 0);
    EnterPin("000000");
    EXPECT_EQ(VerifyPIN(kSerial), 0);
    ASSERT_EQ(SetCachePinFlag(kSerial, 0), 0);
    EXPECT_EQ(VerifyPIN(kSerial), softkey::kPinWrong);
}

TEST_F(Pin, initialisation_empties_the_key_and_sets_a_new_PIN) {
    Enrol();
    EnterNewPin("97531000");
    ASSERT_EQ(Initialize(), 0);
    ASSERT_EQ(InitUKey(kSerial), 0);
    EXPECT_EQ(ReadCertificate(kSerial, kSigning, kSm2).code, softkey::kNoCertificate);
    EXPECT_EQ(PrintNumber().text, kSerial);
    RemovePinCache();
    EXPECT_EQ(VerifyPIN(kSerial), softkey::kPinWrong);
    EnterPin("97531000");
    EXPECT_EQ(VerifyPIN(kSerial), 0);
}

TEST_F(Pin, initialisation_takes_the_new_PIN_as_a_parameter) {
    char pin[] = "11223344";
    ASSERT_EQ(TestInitUKey(kSerial, pin), 0);
    EnterPin("11223344");
    EXPECT_EQ(VerifyPIN(kSerial), 0);
}

}  // namespace
