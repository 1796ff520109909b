// Which operations stand behind another one that waits for a person, and which do not.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "kesta/ukey.hpp"
#include "stand_in.h"

namespace kesta {
namespace {

using std::chrono::milliseconds;

// While a person is asked on another thread.
class WhileAsking : public testing::Test {
protected:
    void SetUp() override {
        stand_in().Reset();
        library.Initialize();
        stand_in().asking = true;
        asking_ = std::thread([this] { library.VerifyPIN("SN"); });
        while (stand_in().inside == 0) std::this_thread::sleep_for(milliseconds(1));
    }
    void TearDown() override { Answer(); }
    void Answer() {
        stand_in().asking = false;
        if (asking_.joinable()) asking_.join();
    }

    const Library library = Library::Linked();

private:
    std::thread asking_;
};

// A failure of these is a test that never ends.
TEST_F(WhileAsking, operations_that_ask_no_token_answer) {
    stand_in().text = "text";
    EXPECT_EQ(library.GetDllVersion(), "text");
    EXPECT_EQ(library.GetDriverVersion(), "text");
    EXPECT_EQ(library.GetVidAndPid(), "text");
    EXPECT_EQ(library.GetVendorInfo(2), "text");
    library.CheckDriverIntegrity();
    static_cast<void>(library.GetLastErrCode());
    for (const auto& result : {library.Try().RegisterCert(), library.Try().UnregisterCert(),
                               library.Try().RepairDriver()}) {
        EXPECT_EQ(result.code(), KESTA_UNSUPPORTED);
    }
    library.StopDetectUKey();
}

TEST_F(WhileAsking, they_answer_though_the_library_is_no_longer_initialised) {
    stand_in().text = "text";
    library.Finalize();
    EXPECT_EQ(library.GetDllVersion(), "text");
}

TEST_F(WhileAsking, others_give_up_when_their_patience_ends) {
    for (const auto patience : {milliseconds(0), milliseconds(5), milliseconds::min()}) {
        const auto impatient = library.Within(patience);
        const auto label = impatient.Try().GetLabel("SN");
        ASSERT_FALSE(label.ok());
        EXPECT_EQ(label.failure().kind(), Kind::kBusy);
        EXPECT_EQ(label.failure().origin, Failure::Origin::kRefused);
        EXPECT_EQ(label.failure().operation, "GetLabel");
        EXPECT_EQ(impatient.Key("SN").Try().GetPinInfo().failure().kind(), Kind::kBusy);
        EXPECT_EQ(impatient.Try().SetLabel("SN", "x").failure().kind(), Kind::kBusy);
        EXPECT_EQ(impatient.Try().Sign("SN", 1, 2, "d", "w").failure().kind(), Kind::kBusy);
        EXPECT_EQ(impatient.Try().GenerateCertRequest("SN", "").failure().kind(), Kind::kBusy);
        EXPECT_FALSE(impatient.Message(0x5B21).empty());
    }
    EXPECT_EQ(stand_in().mostInside, 1);
}

TEST_F(WhileAsking, others_have_their_turn_when_the_person_has_answered) {
    std::atomic<int> over{0};
    std::vector<std::thread> patient;
    for (const Library& one : {library, library.Within(milliseconds::max())}) {
        patient.emplace_back([&over, one] {
            EXPECT_TRUE(one.Try().SetLabel("SN", "label").ok());
            ++over;
        });
    }
    std::this_thread::sleep_for(milliseconds(20));
    EXPECT_EQ(over, 0);
    Answer();
    for (std::thread& thread : patient) thread.join();
    EXPECT_EQ(stand_in().calls.back(), "SetLabel SN label");
}

TEST(Within, takes_its_turn_where_nobody_else_has_it) {
    stand_in().Reset();
    const Library library = Library::Linked().Within({});
    library.SetLabel("SN", "label");
    EXPECT_EQ(stand_in().calls.back(), "SetLabel SN label");
}

}  // namespace
}  // namespace kesta
