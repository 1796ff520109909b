#include "softkey/misbehaviour/misbehaviour.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <memory>
#include <thread>
#include <vector>

#include "file_size_limit.h"
#include "softkey/codes.h"
#include "softkey/result.h"
#include "softkey/store/lock.h"
#include "temporary_folder.h"

namespace {

using softkey::NextMisbehaviour;

constexpr char kThirdFails[] = R"({"rules": [{"entry": "SetData", "call": 3, "code": 77}]})";

class Misbehaviours : public testing::Test {
protected:
    TemporaryFolder folder_;
    const std::string home_ = folder_.Path();
};

TEST_F(Misbehaviours, Without_a_plan_nothing_happens_and_nothing_is_written) {
    EXPECT_FALSE(NextMisbehaviour(home_, "SetData").code);
    EXPECT_TRUE(std::filesystem::is_empty(home_));
    EXPECT_FALSE(NextMisbehaviour(home_ + "/absent", "SetData").code);
}

TEST_F(Misbehaviours, The_nth_call_is_counted_from_the_setting_of_the_plan) {
    softkey::SetMisbehaviour(home_, kThirdFails);
    EXPECT_FALSE(NextMisbehaviour(home_, "SetData").code);
    EXPECT_FALSE(NextMisbehaviour(home_, "SetData").code);
    EXPECT_EQ(77, NextMisbehaviour(home_, "SetData").code);
    EXPECT_FALSE(NextMisbehaviour(home_, "SetData").code);
}

TEST_F(Misbehaviours, Each_entry_point_has_its_own_count) {
    softkey::SetMisbehaviour(home_, R"({"rules": [
        {"entry": "SetData", "code_after": 1}, {"entry": "GetData", "code_after": 1}]})");
    NextMisbehaviour(home_, "SetData");
    NextMisbehaviour(home_, "GetData");
    NextMisbehaviour(home_, "SetData");
    EXPECT_FALSE(NextMisbehaviour(home_, "Initialize").code) << "no plan can name it";
    const std::map<std::string, std::uint64_t> expected = {{"SetData", 2}, {"GetData", 1}};
    EXPECT_EQ(expected, softkey::MisbehaviourCounts(home_));
}

TEST_F(Misbehaviours, A_rule_for_one_serial_number_counts_the_calls_for_it) {
    softkey::SetMisbehaviour(home_, R"({"rules": [
        {"entry": "GetLabel", "serial": "B", "call": 2, "code": 77}]})");
    const auto hits = [this](const std::string& serial) {
        return NextMisbehaviour(home_, "GetLabel", [&] { return serial; }).code == 77;
    };
    EXPECT_FALSE(hits("A"));
    EXPECT_FALSE(hits("B"));
    EXPECT_FALSE(hits("A"));
    EXPECT_TRUE(hits("B"));
    EXPECT_FALSE(hits("B"));
    EXPECT_EQ(5U, softkey::MisbehaviourCounts(home_)["GetLabel"]);
}

TEST_F(Misbehaviours, A_rule_for_all_entry_points_counts_their_calls_together) {
    softkey::SetMisbehaviour(home_, R"({"rules": [{"entry": "*", "call": 3, "code": 77}]})");
    EXPECT_FALSE(NextMisbehaviour(home_, "SetData").code);
    EXPECT_FALSE(NextMisbehaviour(home_, "GetData").code);
    EXPECT_FALSE(NextMisbehaviour(home_, "UOS_SetCharset").code);
    EXPECT_EQ(77, NextMisbehaviour(home_, "VerifyPIN").code);
}

TEST_F(Misbehaviours, The_count_goes_on_in_another_process) {
    softkey::SetMisbehaviour(home_, kThirdFails);
    NextMisbehaviour(home_, "SetData");
    const pid_t child = fork();
    if (child == 0) _exit(NextMisbehaviour(home_, "SetData").code ? 1 : 0);
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(0, status);
    EXPECT_EQ(77, NextMisbehaviour(home_, "SetData").code);
}

TEST_F(Misbehaviours, No_call_is_lost_when_threads_count_at_once) {
    softkey::SetMisbehaviour(home_, kThirdFails);
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([this] {
            for (int call = 0; call < 400; ++call) NextMisbehaviour(home_, "SetData");
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(3200U, softkey::MisbehaviourCounts(home_)["SetData"]);
}

TEST_F(Misbehaviours, A_new_plan_starts_to_count_afresh) {
    softkey::SetMisbehaviour(home_, kThirdFails);
    NextMisbehaviour(home_, "SetData");
    NextMisbehaviour(home_, "SetData");
    softkey::SetMisbehaviour(home_, kThirdFails);
    EXPECT_TRUE(softkey::MisbehaviourCounts(home_).empty());
    EXPECT_FALSE(NextMisbehaviour(home_, "SetData").code);
}

TEST_F(Misbehaviours, A_plan_that_is_refused_leaves_the_old_one_in_force) {
    softkey::SetMisbehaviour(home_, kThirdFails);
    NextMisbehaviour(home_, "SetData");
    EXPECT_THROW(softkey::SetMisbehaviour(home_, "{}"), softkey::PlanError);
    EXPECT_EQ(kThirdFails, softkey::MisbehaviourPlan(home_));
    EXPECT_EQ(1U, softkey::MisbehaviourCounts(home_)["SetData"]);
}

TEST_F(Misbehaviours, Clearing_ends_the_plan) {
    softkey::SetMisbehaviour(home_, R"({"rules": [{"entry": "SetData", "code": 77}]})");
    EXPECT_EQ(77, NextMisbehaviour(home_, "SetData").code);
    EXPECT_TRUE(softkey::ClearMisbehaviour(home_));
    EXPECT_FALSE(NextMisbehaviour(home_, "SetData").code);
    EXPECT_EQ("", softkey::MisbehaviourPlan(home_));
    EXPECT_TRUE(softkey::MisbehaviourCounts(home_).empty());
    EXPECT_FALSE(softkey::ClearMisbehaviour(home_));
}

TEST_F(Misbehaviours, A_damaged_plan_answers_the_code_of_damaged_state) {
    folder_.Write("misbehaviour.json", "{\"rules\": [{\"ent");
    EXPECT_TRUE(softkey::MisbehaviourCounts(home_).empty()) << "nothing was ever counted";
    EXPECT_EQ(softkey::kStateDamaged, NextMisbehaviour(home_, "SetData").code);
}

TEST_F(Misbehaviours, A_damaged_plan_is_replaced_and_cleared) {
    for (const std::string& text : {std::string("{\"rules\""), std::string((1 << 20) + 1, ' ')}) {
        folder_.Write("misbehaviour.json", text);
        EXPECT_TRUE(softkey::ClearMisbehaviour(home_));
        EXPECT_FALSE(softkey::IsMisbehaving(home_));
        folder_.Write("misbehaviour.json", text);
        softkey::SetMisbehaviour(home_, kThirdFails);
        EXPECT_EQ(kThirdFails, softkey::MisbehaviourPlan(home_));
    }
}

TEST_F(Misbehaviours, What_is_no_plan_but_stands_in_its_place_is_told_and_read_by_nobody) {
    const std::string plan = folder_.File("misbehaviour.json");
    const auto answer = [this] { return NextMisbehaviour(home_, "SetData").code; };
    ASSERT_EQ(0, mkfifo(plan.c_str(), 0600));
    EXPECT_EQ(softkey::kStateDamaged, answer()) << "a pipe";
    std::filesystem::remove(plan);
    folder_.Write("misbehaviour.json", kThirdFails);
    std::filesystem::resize_file(plan, std::uintmax_t{1} << 40);
    EXPECT_EQ(softkey::kStateDamaged, answer()) << "larger than memory";
    std::filesystem::remove(plan);
    std::filesystem::create_directory(plan);
    EXPECT_EQ(softkey::kStateUnreachable, answer()) << "a folder";
    std::filesystem::remove(plan);
    std::filesystem::create_symlink("misbehaviour.json", plan);
    EXPECT_FALSE(answer()) << "a link that leads nowhere is no plan";
    EXPECT_THROW(softkey::MisbehaviourPlan(home_), softkey::Failure) << "nor can it be read";
}

TEST_F(Misbehaviours, A_count_is_not_written_through_a_link) {
    softkey::SetMisbehaviour(home_, kThirdFails);
    std::filesystem::rename(folder_.File("misbehaviour.counts"), folder_.File("elsewhere"));
    std::filesystem::create_symlink("elsewhere", folder_.File("misbehaviour.counts"));
    EXPECT_EQ(softkey::kStateUnreachable, NextMisbehaviour(home_, "SetData").code);
    EXPECT_EQ("", folder_.Read("elsewhere"));
}

TEST_F(Misbehaviours, A_call_that_cannot_be_counted_for_lack_of_room_says_so) {
    softkey::SetMisbehaviour(home_, kThirdFails);
    const pid_t child = fork();
    if (child == 0) {
        const FileSizeLimit none(0);
        _exit(NextMisbehaviour(home_, "SetData").code == softkey::kStateFull ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(0, status);
}

TEST_F(Misbehaviours, A_process_that_was_stopped_while_it_counts_makes_the_key_busy) {
    softkey::SetMisbehaviour(home_, kThirdFails);
    {
        const softkey::Lock stopped(
            home_, 0, std::make_shared<softkey::File>(folder_.File("misbehaviour.counts"), O_RDWR));
        EXPECT_EQ(softkey::kStateBusy, NextMisbehaviour(home_, "SetData").code);
    }
    EXPECT_FALSE(NextMisbehaviour(home_, "SetData").code);
    EXPECT_EQ(1U, softkey::MisbehaviourCounts(home_)["SetData"]);
}

TEST_F(Misbehaviours, The_files_are_the_owners_alone) {
    const mode_t old = umask(0);
    softkey::SetMisbehaviour(home_, kThirdFails);
    umask(old);
    for (const char* name : {"misbehaviour.json", "misbehaviour.counts"}) {
        struct stat status = {};
        ASSERT_EQ(0, stat(folder_.File(name).c_str(), &status)) << name;
        EXPECT_EQ(0600U, status.st_mode & 07777U) << name;
    }
}

TEST_F(Misbehaviours, A_folder_that_is_not_there_is_an_error_that_names_the_file) {
    try {
        softkey::SetMisbehaviour(home_ + "/absent", kThirdFails);
        FAIL() << "accepted";
    } catch (const softkey::Failure& failure) {
        EXPECT_EQ(softkey::kStateUnreachable, failure.code());
        EXPECT_NE(std::string::npos, failure.detail().find("/absent/misbehaviour.counts"));
    }
}

}  // namespace
