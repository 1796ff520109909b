#include <fcntl.h>
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <thread>

#include "pinentry_fixture.h"

namespace {

using softkey::AskNewPin;
using softkey::AskPresentPin;
using softkey::NewPinKind;
using softkey::PinContext;
using softkey::SecretText;

TEST_F(Pinentry, The_variable_goes_before_the_program) {
    Install("#!/bin/bash\ntouch \"$NOTES\"\n");
    const ScopedVariable variable("KESTA_SOFTKEY_PIN", "123456");
    EXPECT_EQ(softkey::kOk, AskPresentPin(context_, pin_));
    EXPECT_EQ("123456", pin_.View());
    EXPECT_NE(0, access(folder_.File("notes").c_str(), F_OK));
}

TEST_F(Pinentry, An_empty_variable_counts_as_unset) {
    InstallObedient("echo 'D 654321'; echo OK");
    const ScopedVariable variable("KESTA_SOFTKEY_PIN", "");
    EXPECT_EQ(softkey::kOk, AskPresentPin(context_, pin_));
    EXPECT_EQ("654321", pin_.View());
}

TEST_F(Pinentry, A_variable_beyond_the_capacity_is_a_wrong_length) {
    const ScopedVariable variable("KESTA_SOFTKEY_PIN", std::string(257, '1').c_str());
    EXPECT_EQ(softkey::kPinLength, AskPresentPin(context_, pin_));
    EXPECT_TRUE(pin_.Empty());
}

TEST_F(Pinentry, A_new_pin_has_its_own_variable) {
    const ScopedVariable present("KESTA_SOFTKEY_PIN", "123456");
    const ScopedVariable fresh("KESTA_SOFTKEY_NEW_PIN", "abcdef");
    EXPECT_EQ(softkey::kOk, AskNewPin(context_, pin_));
    EXPECT_EQ("abcdef", pin_.View());
}

TEST_F(Pinentry, The_first_pin_comes_from_the_variable_of_the_present_one) {
    const ScopedVariable present("KESTA_SOFTKEY_PIN", "123456");
    EXPECT_EQ(softkey::kOk, AskNewPin(context_, pin_, NewPinKind::kFirst));
    EXPECT_EQ("123456", pin_.View());
}

TEST_F(Pinentry, The_program_is_told_title_description_and_prompt) {
    InstallObedient("echo 'D 123456'; echo OK");
    context_.label = "50% off";
    context_.triesLeft = 4;
    context_.wrongBefore = true;
    EXPECT_EQ(softkey::kOk, AskPresentPin(context_, pin_));
    const std::string notes = Notes();
    EXPECT_NE(notes.npos, notes.find("\nSETTITLE Security key\n")) << notes;
    EXPECT_NE(notes.npos, notes.find("\nSETPROMPT PIN:\n")) << notes;
    EXPECT_NE(notes.npos, notes.find("SETDESC Please enter the PIN of your security key.%0AKey: "
                                     "50%25 off SK1%0ATries left: 4\n"))
        << notes;
    EXPECT_NE(notes.npos, notes.find("\nSETERROR The PIN is wrong.\n")) << notes;
    EXPECT_NE(notes.npos, notes.find("\nGETPIN\nBYE\n")) << notes;
}

TEST_F(Pinentry, The_question_is_chinese_by_default) {
    InstallObedient("echo 'D 123456'; echo OK");
    context_.language = PinContext().language;
    EXPECT_EQ(softkey::kOk, AskPresentPin(context_, pin_));
    EXPECT_NE(std::string::npos, Notes().find("SETTITLE UKey\n"));
}

TEST_F(Pinentry, Escapes_in_the_pin_are_undone) {
    InstallObedient("echo 'D a%25b%0Ac%0a%E5%AF%86'; echo OK");
    EXPECT_EQ(softkey::kOk, AskPresentPin(context_, pin_));
    EXPECT_EQ("a%b\nc\n密", pin_.View());
}

TEST_F(Pinentry, A_pin_in_two_pieces_is_joined) {
    InstallObedient("echo 'D 123'; echo '# a remark'; echo 'D 456'; echo OK");
    EXPECT_EQ(softkey::kOk, AskPresentPin(context_, pin_));
    EXPECT_EQ("123456", pin_.View());
}

TEST_F(Pinentry, A_pin_beyond_the_capacity_is_a_wrong_length) {
    InstallObedient("printf 'D %0300d\\nOK\\n' 7");
    EXPECT_EQ(softkey::kPinLength, AskPresentPin(context_, pin_));
    EXPECT_TRUE(pin_.Empty());
}

TEST_F(Pinentry, The_cancel_button_is_a_cancel) {
    InstallObedient("echo 'D 123456'; echo 'ERR 83886179 Operation cancelled <Pinentry>'");
    EXPECT_EQ(softkey::kPinCancelled, AskPresentPin(context_, pin_));
    EXPECT_TRUE(pin_.Empty());
}

TEST_F(Pinentry, No_program_is_a_cancel) {
    const ScopedVariable path("PATH", folder_.Path().c_str());
    EXPECT_EQ(softkey::kPinCancelled, AskPresentPin(context_, pin_));
    const auto held = [] { return mallinfo2().uordblks; };
    const auto before = held();
    for (int i = 0; i < 8; ++i) {
        softkey::AssuanProgram program;
        EXPECT_FALSE(program.Start("pinentry", {}, context_.protocolPatience));
    }
    EXPECT_EQ(before, held());
}

TEST_F(Pinentry, A_request_that_the_program_does_not_know_is_no_matter) {
    Install(R"(#!/bin/bash
echo OK
while read -r line; do
    case $line in
    GETPIN) echo 'D 123456'; echo OK ;;
    *) echo 'ERR 275 Unknown IPC command' ;;
    esac
done
)");
    EXPECT_EQ(softkey::kOk, AskPresentPin(context_, pin_));
    EXPECT_EQ("123456", pin_.View());
}

TEST_F(Pinentry, A_program_that_dies_is_a_cancel) {
    for (const char* script :
         {"#!/bin/bash\nexit 3\n", "#!/bin/bash\necho OK\nread -r line\nkill -9 $$\n",
          "#!/bin/bash\necho OK\nexec >&- <&-\nsleep 0.1\n"}) {
        Install(script);
        EXPECT_EQ(softkey::kPinCancelled, AskPresentPin(context_, pin_)) << script;
    }
}

TEST_F(Pinentry, A_program_that_talks_nonsense_is_a_cancel) {
    for (const char* lines :
         {"echo WHAT", "echo 'D 12%'; echo OK", "echo 'D 12%4'; echo OK", "echo 'D %zz'; echo OK",
          "echo 'INQUIRE QUALITY 1'", "head -c 5000 /dev/zero; echo", "yes '# still here'",
          "yes 'D 1'", "printf '\\000\\001\\n'", "echo OKAY"}) {
        InstallObedient(lines);
        EXPECT_EQ(softkey::kPinCancelled, AskPresentPin(context_, pin_)) << lines;
        EXPECT_TRUE(pin_.Empty());
    }
}

TEST_F(Pinentry, A_program_that_hangs_is_killed) {
    for (const char* script : {"#!/bin/bash\nexec sleep 100\n",
                               "#!/bin/bash\ntrap '' TERM\necho OK\nexec sleep 100\n"}) {
        Install(script);
        context_.protocolPatience = std::chrono::milliseconds(200);
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(softkey::kPinCancelled, AskPresentPin(context_, pin_)) << script;
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
    }
}

TEST_F(Pinentry, A_program_that_does_not_leave_is_killed_after_the_answer) {
    Install(R"(#!/bin/bash
trap '' TERM
echo $$ >"$NOTES"
echo OK
while read -r line; do
    case $line in
    GETPIN) echo 'D 123456'; echo OK ;;
    BYE) exec sleep 100 ;;
    *) echo OK ;;
    esac
done
)");
    EXPECT_EQ(softkey::kOk, AskPresentPin(context_, pin_));
    EXPECT_EQ("123456", pin_.View());
    EXPECT_EQ(-1, kill(std::stoi(Notes()), 0));
    EXPECT_EQ(ESRCH, errno);
}

TEST_F(Pinentry, No_child_is_left_behind) {
    for (const char* script : {"#!/bin/bash\nexit 3\n", "#!/bin/bash\nexec sleep 100\n",
                               "#!/bin/bash\necho OK\nexec sleep 100\n"}) {
        Install(script);
        context_.protocolPatience = std::chrono::milliseconds(200);
        AskPresentPin(context_, pin_);
        EXPECT_EQ(-1, waitpid(-1, nullptr, WNOHANG)) << script;
        EXPECT_EQ(ECHILD, errno);
        EXPECT_NE(-1, fcntl(STDOUT_FILENO, F_GETFD)) << "what is not its own was closed";
    }
}

TEST_F(Pinentry, A_client_that_ignores_its_children_gets_its_pin) {
    InstallObedient("echo 'D 123456'; echo OK");
    const auto old = std::signal(SIGCHLD, SIG_IGN);
    EXPECT_EQ(softkey::kOk, AskPresentPin(context_, pin_));
    std::signal(SIGCHLD, old);
    EXPECT_EQ("123456", pin_.View());
}

TEST_F(Pinentry, The_program_inherits_no_descriptor) {
    Install("#!/bin/bash\n[ -e /proc/$$/fd/3 -o -e /proc/$$/fd/77 ]; echo $? >\"$NOTES\"\n");
    const pid_t child = fork();
    if (child == 0) {
        for (const int descriptor : {3, 77}) dup2(STDERR_FILENO, descriptor);  // without O_CLOEXEC
        AskPresentPin(context_, pin_);
        _exit(0);
    }
    waitpid(child, nullptr, 0);
    EXPECT_EQ("1\n", Notes());
}

TEST_F(Pinentry, The_program_does_not_see_the_pins_of_the_environment) {
    Install("#!/bin/bash\nenv | grep -c PIN= >\"$NOTES\"\nexit 1\n");
    const ScopedVariable present("KESTA_SOFTKEY_PIN", "123456");
    EXPECT_EQ(softkey::kPinCancelled, AskNewPin(context_, pin_));
    EXPECT_EQ("0\n", Notes());
}

TEST_F(Pinentry, A_new_pin_repeated_within_the_program_is_asked_once) {
    InstallObedient("echo 'S PIN_REPEATED'; echo 'D abcdef'; echo OK");
    EXPECT_EQ(softkey::kOk, AskNewPin(context_, pin_));
    EXPECT_EQ("abcdef", pin_.View());
    EXPECT_NE(std::string::npos, Notes().find("\nSETREPEAT Repeat:\n"));
    EXPECT_EQ(Notes().find("GETPIN"), Notes().rfind("GETPIN"));
}

TEST_F(Pinentry, A_program_without_repetition_is_asked_twice) {
    InstallObedient("echo 'D abcdef'; echo OK");
    EXPECT_EQ(softkey::kOk, AskNewPin(context_, pin_));
    EXPECT_EQ("abcdef", pin_.View());
    EXPECT_NE(Notes().find("GETPIN"), Notes().rfind("GETPIN"));
}

TEST_F(Pinentry, Two_entries_that_differ_are_a_mismatch) {
    InstallObedient("echo \"D abcdef$((++times))\"; echo OK");
    EXPECT_EQ(softkey::kPinMismatch, AskNewPin(context_, pin_));
    EXPECT_TRUE(pin_.Empty());
}

TEST_F(Pinentry, A_program_that_dies_before_a_new_pin_is_a_cancel) {
    for (const char* const request : {"SETREPEAT*", "SETREPEATERROR*", "GETPIN*"}) {
        Install(std::string("#!/bin/bash\necho OK\nwhile read -r line; do [[ $line == ") + request +
                " ]] && exit; echo OK; done\n");
        EXPECT_EQ(softkey::kPinCancelled, AskNewPin(context_, pin_)) << request;
        EXPECT_TRUE(pin_.Empty());
    }
}

// What such a client prints must not get into the conversation.
TEST_F(Pinentry, A_client_without_standard_descriptors_gets_its_pin_and_no_new_ones) {
    InstallObedient(
        "compgen -G \"/proc/$PPID/fd/[$CLOSED]\" >/dev/null && echo 'D taken' || echo 'D 123456'; "
        "echo OK");
    for (const std::string numbers : {"012", "2"}) {
        const ScopedVariable variable("CLOSED", numbers.c_str());
        const pid_t child = fork();
        if (child == 0) {
            for (const char number : numbers) close(number - '0');
            const bool asked = AskPresentPin(context_, pin_) == softkey::kOk;
            _exit(asked && pin_.View() == "123456" ? 0 : 1);
        }
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(0, status) << numbers;
    }
}

TEST_F(Pinentry, A_long_label_is_cut_between_characters) {
    InstallObedient("echo 'D 123456'; echo OK");
    context_.label = "x";
    for (int i = 0; i < 400; ++i) context_.label += "密";
    EXPECT_EQ(softkey::kOk, AskPresentPin(context_, pin_));
    EXPECT_NE(std::string::npos, Notes().find("密... SK1\n"));
}

TEST_F(Pinentry, Asking_a_dead_program_raises_no_signal) {
    Install("#!/bin/bash\necho OK\n");
    softkey::AssuanProgram program;
    ASSERT_TRUE(program.Start("pinentry", {}, context_.protocolPatience));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_EQ(softkey::AssuanResult::kBroken, program.Ask("GETPIN", context_.patience));
    EXPECT_EQ(-1, waitpid(-1, nullptr, WNOHANG)) << "it is gone at once";
    EXPECT_EQ(softkey::AssuanResult::kBroken, program.Ask("GETPIN", context_.patience));
}

}  // namespace
