// The conversation with the program that asks for a PIN, word by word.
#include <fcntl.h>
#include <openssl/crypto.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <sstream>
#include <thread>

#include "pinentry_fixture.h"

namespace {

using softkey::AskNewPin;
using softkey::AskPresentPin;

// What the program is told, but for its terminal, which is this process's.
std::string Transcript(const std::string& notes) {
    std::istringstream lines(notes);
    std::string text;
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind("OPTION ttyname=", 0) != 0) text += line + "\n";
    }
    return text;
}

TEST_F(Pinentry, The_questions_are_asked_in_the_words_of_their_language) {
    const ScopedVariable term("TERM", "vt52"), locale("LC_ALL", "zh_CN.UTF-8");
    struct Row {
        softkey::Language language;
        const char *present, *fresh;
    };
    const Row rows[] = {
        {softkey::Language::kEnglish,
         "SETTITLE Security key\nSETTIMEOUT 1\n"
         "SETDESC Please enter the PIN of your security key.%0AKey: L SK1%0ATries left: 0\n"
         "SETPROMPT PIN:\nSETERROR The PIN is wrong.\nGETPIN\nBYE\n",
         "SETTITLE Security key\nSETTIMEOUT 1\n"
         "SETDESC Please choose a new PIN of 6 to 16 characters for your security key.%0A"
         "Key: L SK1\nSETPROMPT New PIN:\nSETREPEAT Repeat:\n"
         "SETREPEATERROR The two entries differ.\nGETPIN\nSETPROMPT Repeat:\nGETPIN\nBYE\n"},
        {softkey::Language::kChinese,
         "SETTITLE UKey\nSETTIMEOUT 1\n"
         "SETDESC 请输入 UKey 的 PIN 码。%0AUKey: L SK1%0A剩余次数： 0\n"
         "SETPROMPT PIN 码：\nSETERROR PIN 码错误。\nGETPIN\nBYE\n",
         "SETTITLE UKey\nSETTIMEOUT 1\n"
         "SETDESC 请为 UKey 设置新的 PIN 码（6 至 16 个字符）。%0AUKey: L SK1\n"
         "SETPROMPT 新 PIN 码：\nSETREPEAT 再次输入：\nSETREPEATERROR 两次输入不一致。\n"
         "GETPIN\nSETPROMPT 再次输入：\nGETPIN\nBYE\n"}};
    InstallObedient("echo 'D 123456'; echo OK");
    context_.label = "L";
    context_.triesLeft = 0;
    context_.wrongBefore = true;
    const std::string head = "OPTION ttytype=vt52\nOPTION lc-ctype=zh_CN.UTF-8\n";
    for (const Row& row : rows) {
        context_.language = row.language;
        EXPECT_EQ(softkey::kOk, AskPresentPin(context_, pin_));
        EXPECT_EQ(head + row.present, Transcript(Notes()));
        folder_.Write("notes", "");
        EXPECT_EQ(softkey::kOk, AskNewPin(context_, pin_));
        EXPECT_EQ(head + row.fresh, Transcript(Notes()));
        folder_.Write("notes", "");
    }
}

TEST_F(Pinentry, What_the_program_complains_of_is_not_the_clients) {
    InstallObedient("echo 'no display' >&2; echo 'D 123456'; echo OK");
    testing::internal::CaptureStderr();
    EXPECT_EQ(softkey::kOk, AskPresentPin(context_, pin_));
    EXPECT_EQ("", testing::internal::GetCapturedStderr());
}

TEST_F(Pinentry, What_is_not_known_is_not_told) {
    const ScopedVariable term("TERM", nullptr), all("LC_ALL", nullptr), type("LC_CTYPE", nullptr),
        lang("LANG", nullptr);
    InstallObedient("echo 'D 123456'; echo OK");
    context_.serial.clear();
    context_.patience = std::chrono::seconds(7);
    EXPECT_EQ(softkey::kOk, AskPresentPin(context_, pin_));
    EXPECT_EQ(
        "SETTITLE Security key\nSETTIMEOUT 7\n"
        "SETDESC Please enter the PIN of your security key.\nSETPROMPT PIN:\nGETPIN\nBYE\n",
        Transcript(Notes()));
}

TEST_F(Pinentry, The_charset_is_that_of_the_first_variable_that_is_set) {
    InstallObedient("echo 'D 123456'; echo OK");
    const ScopedVariable lang("LANG", "one"), type("LC_CTYPE", nullptr), all("LC_ALL", nullptr);
    const auto told = [this](const char* locale) {
        folder_.Write("notes", "");
        EXPECT_EQ(softkey::kOk, AskPresentPin(context_, pin_));
        return Notes().find(std::string("OPTION lc-ctype=") + locale + "\n") != std::string::npos;
    };
    EXPECT_TRUE(told("one"));
    const ScopedVariable second("LC_CTYPE", "two");
    EXPECT_TRUE(told("two"));
    const ScopedVariable third("LC_ALL", "three");
    EXPECT_TRUE(told("three"));
}

TEST_F(Pinentry, A_label_of_96_bytes_is_shown_whole) {
    InstallObedient("echo 'D 123456'; echo OK");
    const std::string tail = " SK1\n";
    EXPECT_EQ(softkey::kOk, AskPresentPin(context_, pin_));
    EXPECT_NE(std::string::npos, Notes().find("%0AKey: SK1\n")) << "none";
    const std::vector<std::pair<std::string, std::string>> cases = {
        {std::string(96, 'x'), std::string(96, 'x')},
        {std::string(97, 'x'), std::string(96, 'x') + "..."},
        {std::string(95, 'x') + "\xC3\xA9", std::string(95, 'x') + "..."},
        {std::string(94, 'x') + "\xC3\xA9y", std::string(94, 'x') + "\xC3\xA9..."},
        {std::string(120, '\x80'), "..."}};
    for (const auto& [label, shown] : cases) {
        folder_.Write("notes", "");
        context_.label = label;
        EXPECT_EQ(softkey::kOk, AskPresentPin(context_, pin_));
        EXPECT_NE(std::string::npos, Notes().find("%0AKey: " + shown + tail)) << label;
    }
}

TEST_F(Pinentry, A_program_that_ends_at_any_request_is_a_cancel) {
    for (const char* verb : {"SETTITLE", "SETTIMEOUT", "SETDESC", "SETPROMPT", "SETERROR",
                             "SETREPEAT", "SETREPEATERROR", "GETPIN"}) {
        Install(std::string("#!/bin/bash\necho OK\nwhile read -r line; do\n[[ $line = ") + verb +
                "* ]] && exit\n[[ $line = GETPIN ]] && echo 'D 123456'\necho OK\ndone\n");
        context_.wrongBefore = true;
        const bool repeats = std::string(verb).find("REPEAT") != std::string::npos;
        EXPECT_EQ(softkey::kPinCancelled,
                  repeats ? AskNewPin(context_, pin_) : AskPresentPin(context_, pin_))
            << verb;
        EXPECT_TRUE(pin_.Empty());
    }
}

TEST_F(Pinentry, A_cancel_of_the_repetition_is_a_cancel) {
    InstallObedient(
        "((times++)) && echo 'ERR 83886179 cancelled' || { echo 'D abcdef'; echo OK; }");
    EXPECT_EQ(softkey::kPinCancelled, AskNewPin(context_, pin_));
    EXPECT_TRUE(pin_.Empty());
}

TEST_F(Pinentry, Only_the_pins_of_the_environment_are_hidden) {
    Install("#!/bin/bash\nenv | grep ^KESTA_SOFTKEY_ | sort >\"$NOTES\"\nexit 1\n");
    const ScopedVariable cost("KESTA_SOFTKEY_PIN_COST", "2048"), pin("KESTA_SOFTKEY_PIN", "123456"),
        home("KESTA_SOFTKEY_HOME", nullptr), button("KESTA_SOFTKEY_BUTTON_MS", nullptr);
    EXPECT_EQ(softkey::kPinCancelled, AskNewPin(context_, pin_));
    EXPECT_EQ("KESTA_SOFTKEY_PIN_COST=2048\n", Notes());
}

TEST_F(Pinentry, The_program_begins_with_silence_on_its_error_output_and_no_signal_blocked) {
    Install(
        "#!/bin/bash\n{ readlink /proc/$$/fd/2; grep -E '^Sig(Blk|Ign)' /proc/$$/status; }"
        " >\"$NOTES\"\nexit 1\n");
    const auto old = std::signal(SIGUSR2, SIG_IGN);
    sigset_t blocked, before;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &blocked, &before);
    AskPresentPin(context_, pin_);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    std::signal(SIGUSR2, old);
    EXPECT_EQ(0U, Notes().find("/dev/null\n"));
    const auto bit = [this](const std::string& set, int signal) {
        const std::string text = Notes().substr(Notes().find(set) + set.size());
        return std::stoull(text, nullptr, 16) >> (signal - 1) & 1U;
    };
    EXPECT_EQ(0U, bit("SigBlk:", SIGUSR1));
    EXPECT_EQ(0U, bit("SigIgn:", SIGUSR2));
}

TEST_F(Pinentry, An_answer_has_64_kib) {
    const std::string line = "# " + std::string(61, 'x') + "\n";  // 64 bytes
    for (const std::size_t more : {0U, 1U}) {
        std::string answer;
        while (answer.size() < 65472) answer += line;
        answer += "# " + std::string(58 + more, 'y') + "\nOK\n";
        ASSERT_EQ(65536 + more, answer.size());
        folder_.Write("answer", answer);
        Install(
            "#!/bin/bash\necho OK\nread -r line\ncd \"${NOTES%notes}\"\n"
            "head -c 65535 answer\nsleep 0.1\ntail -c +65536 answer\nread -r line\n");
        softkey::AssuanProgram program;
        ASSERT_TRUE(program.Start("pinentry", {}, context_.protocolPatience));
        EXPECT_EQ(more == 0 ? softkey::AssuanResult::kOk : softkey::AssuanResult::kBroken,
                  program.Ask("X", context_.patience));
    }
}

TEST_F(Pinentry, What_nobody_asked_for_is_passed_over) {
    Install(
        "#!/bin/bash\necho OK\nwhile read -r line; do\necho 'S NOTE of it'\necho 'D data'\n"
        "echo OK\ndone\n");
    softkey::AssuanProgram program;
    ASSERT_TRUE(program.Start("pinentry", {}, context_.protocolPatience));
    EXPECT_EQ(softkey::AssuanResult::kOk, program.Ask("X", context_.patience));
    softkey::AssuanProgram::Answer answer;
    EXPECT_EQ(softkey::AssuanResult::kOk, program.Ask("X", context_.patience, &answer));
    EXPECT_EQ(std::vector<std::string>{"NOTE of it"}, answer.statuses);
    answer.data = &pin_;
    EXPECT_EQ(softkey::AssuanResult::kOk, program.Ask("X", context_.patience, &answer));
    EXPECT_EQ("data", pin_.View());
    EXPECT_FALSE(answer.dataTooLong);
}

TEST_F(Pinentry, A_program_may_end_by_itself_and_no_descriptor_stays) {
    Install("#!/bin/bash\necho OK\nwhile read -r line; do :; done\necho ended >\"$NOTES\"\n");
    const auto open = [] {
        const std::filesystem::directory_iterator entries("/proc/self/fd");
        return std::distance(begin(entries), end(entries));
    };
    const auto before = open();
    // Half a second later it is killed, which a busy machine may not leave it.
    for (int i = 0; i < 20 && Notes().empty(); ++i) {
        softkey::AssuanProgram program;
        ASSERT_TRUE(program.Start("pinentry", {}, context_.protocolPatience));
    }
    EXPECT_EQ("ended\n", Notes());
    EXPECT_EQ(before, open());
}

// The time that it had for its last answer does not count against the goodbye.
TEST_F(Pinentry, A_program_whose_time_is_over_is_told_that_it_may_leave) {
    InstallObedient("echo OK");
    std::chrono::milliseconds patience(50);
    for (; Notes().empty() && patience.count() < 5000; patience *= 2) {
        softkey::AssuanProgram program;
        if (program.Start("pinentry", {}, patience)) std::this_thread::sleep_for(patience);
    }
    EXPECT_EQ("BYE\n", Notes());
}

TEST_F(Pinentry, A_client_with_a_timer_gets_its_pin) {
    InstallObedient("sleep 0.1; echo 'D 123456'; echo OK");
    const auto old = std::signal(SIGALRM, [](int) {});
    const itimerval often{{0, 5000}, {0, 5000}}, never{};
    setitimer(ITIMER_REAL, &often, nullptr);
    EXPECT_EQ(softkey::kOk, AskPresentPin(context_, pin_));
    setitimer(ITIMER_REAL, &never, nullptr);
    std::signal(SIGALRM, old);
}

// Nor is a program started that would talk with the client's own input.
TEST_F(Pinentry, Without_room_for_both_ends_of_the_conversation_there_is_none) {
    InstallObedient("echo OK");
    struct Row {
        std::vector<int> closed;
        rlim_t limit;
        bool suffices;
    };
    for (const Row& row : {Row{{}, 3, false}, Row{{}, 4, false}, Row{{0}, 4, false},
                           Row{{0, 1}, 4, false}, Row{{}, 5, true}, Row{{0, 1}, 5, true}}) {
        const pid_t child = fork();
        if (child == 0) {
            closefrom(STDERR_FILENO + 1);
            for (const int descriptor : row.closed) close(descriptor);
            const rlimit limit{row.limit, row.limit};
            setrlimit(RLIMIT_NOFILE, &limit);
            softkey::AssuanProgram program;
            const bool talks = program.Start("pinentry", {}, context_.protocolPatience);
            rusage children{};
            program.Ask("X", std::chrono::milliseconds(0));  // its end
            getrusage(RUSAGE_CHILDREN, &children);
            const bool started = children.ru_minflt != 0;
            _exit(started == row.suffices && (row.suffices || !talks) ? 0 : 1);
        }
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(0, status) << row.closed.size() << " closed, of " << row.limit;
    }
}

TEST_F(Pinentry, Without_room_on_the_secure_heap_there_is_no_conversation) {
    InstallObedient("echo OK");
    std::vector<void*> blocks;
    while (void* const block = OPENSSL_secure_malloc(1024)) blocks.push_back(block);
    softkey::AssuanProgram program;
    EXPECT_FALSE(program.Start("pinentry", {}, context_.protocolPatience));
    EXPECT_EQ(softkey::AssuanResult::kBroken, program.Ask("X", context_.patience));
    for (void* const block : blocks) OPENSSL_secure_free(block);
}

TEST_F(Pinentry, A_client_without_standard_descriptors_gets_its_pin) {
    InstallObedient("echo 'D 123456'; echo OK");
    for (const int closed : {0, 1, 2, 3}) {
        const pid_t child = fork();
        if (child == 0) {
            for (int stream = 0; stream < 3; ++stream) {
                if (closed == 3 || closed == stream) close(stream);
            }
            const bool asked = AskPresentPin(context_, pin_) == softkey::kOk;
            _exit(asked && pin_.View() == "123456" ? 0 : 1);
        }
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(0, status) << closed;
    }
}

// In a process of its own, as each test has it, nothing else has made the heap.
TEST(Assuan, keeps_what_it_holds_on_the_secure_heap) {
    softkey::AssuanProgram program;
    EXPECT_FALSE(program.Start("/nowhere/at/all", {}, std::chrono::milliseconds(0)));
    EXPECT_EQ(1, CRYPTO_secure_malloc_initialized());
}

TEST(Assuan, escapes_what_a_line_cannot_hold) {
    EXPECT_EQ("", softkey::AssuanEscape(""));
    EXPECT_EQ(" ~\x80\xFF", softkey::AssuanEscape(" ~\x80\xFF"));
    EXPECT_EQ("%25%0A%0D%1F%7F%00%09", softkey::AssuanEscape(std::string("%\n\r\x1F\x7F\0\t", 7)));
    for (const char* good : {"", "D abc", "%25", "%fF%0a", "a%AAb", "%00x"}) {
        EXPECT_TRUE(softkey::IsAssuanEscaped(good)) << good;
    }
    for (const char* bad : {"%", "a%", "%2", "%2g", "%g2", "%%25", "%25%", "%25%2", "%2%25"}) {
        EXPECT_FALSE(softkey::IsAssuanEscaped(bad)) << bad;
    }
}

TEST_F(Pinentry, The_program_is_told_the_terminal) {
    InstallObedient("echo 'D 123456'; echo OK");
    const int master = posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_GE(master, 0);
    ASSERT_EQ(0, grantpt(master));
    ASSERT_EQ(0, unlockpt(master));
    const std::string name = ptsname(master);
    const int slave = open(name.c_str(), O_RDWR | O_NOCTTY);
    const int input = dup(STDIN_FILENO);
    dup2(slave, STDIN_FILENO);
    EXPECT_EQ(softkey::kOk, AskPresentPin(context_, pin_));
    dup2(input, STDIN_FILENO);
    EXPECT_EQ(0U, Notes().find("OPTION ttyname=" + name + "\n"));
    folder_.Write("notes", "");
    const pid_t child = fork();
    if (child == 0) {
        const int nothing = open("/dev/null", O_RDWR);
        for (int stream = 0; stream < 3; ++stream) dup2(nothing, stream);
        _exit(AskPresentPin(context_, pin_) == softkey::kOk ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(0, status);
    EXPECT_EQ(std::string::npos, Notes().find("ttyname")) << "there is none";
    for (const int descriptor : {master, slave, input}) close(descriptor);
}

TEST_F(Pinentry, What_was_entered_before_is_gone) {
    InstallObedient("echo 'S PIN_REPEATED'; echo 'D 123456'; echo OK");
    ASSERT_TRUE(pin_.Assign("before"));
    EXPECT_EQ(softkey::kOk, AskPresentPin(context_, pin_));
    EXPECT_EQ("123456", pin_.View());
    EXPECT_EQ(softkey::kOk, AskNewPin(context_, pin_));
    EXPECT_EQ("123456", pin_.View());
}

}  // namespace
