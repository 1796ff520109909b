// What a client sees of each ready plan of misbehaviour, through the library's exports: that the
// plan does what docs/misbehaviour.md says of it.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <fstream>
#include <iterator>
#include <regex>
#include <stdexcept>
#include <thread>

#include "key_test.h"
#include "softkey/codes.h"

namespace {

using namespace flow;

constexpr char kName[] = "account-no-1";

// A key with certificates, as `softkey create` makes it, and one plan in force.
class Plans : public KeyTest {
protected:
    Plans() : KeyTest({"--certificates"}) {}

    static void Misbehave(const std::string& plan) { Softkey({"misbehave", plan}); }

    static Answer Label() {
        char text[600] = "";
        int length = 512;
        const int code = GetLabel(kSerial, text, &length);
        return {code, text};
    }

    static Answer Data(unsigned number) {
        char text[300] = "";
        int length = sizeof text;
        const int code = GetData(kName, number, text, &length);
        return {code, text};
    }

    static Answer Signature() {
        return SignDigest(kSerial, kSm2, kSm3, ToBase64(std::string(32, 'h')));
    }

    // Without the days that the certificates have left: they may change from one moment to the
    // next.
    static std::string Shown() {
        return std::regex_replace(Softkey({"show", "--json"}), std::regex(R"("daysLeft":\d+,?)"),
                                  "");
    }
    static bool Shows(const std::string& text) { return Shown().find(text) != std::string::npos; }

    static bool IsNoise(const std::string& text) {
        return !text.empty() && std::all_of(text.begin(), text.end(), [](char byte) {
            return static_cast<unsigned char>(byte) >= 0x80;
        });
    }

    // Whether the log tells of so many waits that have scanned the slots.
    static bool HasWaited(int waits) {
        std::ifstream log("/tmp/ValtoPinpad_KESTA.log");
        const std::string text{std::istreambuf_iterator<char>(log), {}};
        int count = 0;
        for (std::size_t at = 0; (at = text.find("[after]", at)) != text.npos; ++at) ++count;
        return count >= waits;
    }

    // What so many waits bring, one after the other, while the acts happen, the first of them when
    // the first wait is under way.
    std::string Waits(int number, const std::vector<std::vector<std::string>>& acts) {
        std::string seen;
        std::thread waiter([&] {
            for (int i = 0; i < number; ++i) {
                char mediaId[17] = "";
                unsigned kind = 0, length = 0;
                const int code = WaitForKeyEvent(&kind, mediaId, &length);
                seen += kind == KESTA_EVENT_ARRIVAL ? '+' : '-';
                if (code != 0) seen += std::to_string(code);
            }
        });
        EXPECT_TRUE(Eventually([this] { return HasWaited(waits_ + 1); }));
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        for (const auto& act : acts) Softkey(act);
        waiter.join();
        waits_ += number;
        return seen;
    }

private:
    int waits_ = 0;
};

TEST_F(Plans, slow_makes_each_operation_take_a_second) {
    Misbehave("slow");
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(Label().code, 0);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
}

TEST_F(Plans, hang_keeps_the_second_signature_until_the_key_is_pulled_out) {
    Misbehave("hang");
    EXPECT_EQ(Signature().code, 0);
    std::atomic<bool> ended{false};
    int code = 0;
    std::thread client([&] {
        code = Signature().code;
        ended = true;
    });
    EXPECT_TRUE(Eventually([] {
        return Softkey({"misbehave", "--show", "--json"}).find(R"("GMUsbKeyCommonSign":2)") !=
               std::string::npos;
    }));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_FALSE(ended);
    Softkey({"remove"});
    client.join();
    EXPECT_EQ(code, softkey::kKeyRemoved);
}

TEST_F(Plans, flaky_socket_loses_the_key_at_each_fifth_operation) {
    Misbehave("flaky-socket");
    std::string codes;
    for (int i = 0; i < 10; ++i) {
        const int code = Label().code;
        codes += code == 0 ? '.' : code == softkey::kKeyRemoved ? 'x' : '?';
    }
    EXPECT_EQ(codes, "....x....x");
}

TEST_F(Plans, flaky_socket_bounces) {
    Misbehave("flaky-socket");
    EXPECT_EQ(Waits(3, {{"remove"}}), "-+-");
}

TEST_F(Plans, pulled_out_ends_the_first_request_and_keeps_nothing_of_it) {
    Misbehave("pulled-out");
    EXPECT_EQ(MakeRequests(kSerial, kSigningRequest).code, softkey::kKeyRemoved);
    EXPECT_EQ(Label().code, softkey::kKeyAbsent);
    Softkey({"insert"});
    EXPECT_FALSE(Shows(R"("certificate":null)"));
    EXPECT_EQ(MakeRequests(kSerial, kSigningRequest).code, 0);
    EXPECT_EQ(Signature().code, softkey::kKeyRemoved);
}

TEST_F(Plans, other_slot_moves_the_key) {
    Misbehave("other-slot");
    EXPECT_EQ(Label().code, softkey::kKeyRemoved);
    EXPECT_TRUE(Shows(R"("slot":9)")) << Shown();
    EXPECT_EQ(Label().text, kSerial);
}

TEST_F(Plans, lost_answers_leave_the_work_done) {
    Misbehave("lost-answers");
    EXPECT_EQ(MakeRequests(kSerial, kSigningRequest).code, softkey::kKeyRemoved);
    EXPECT_TRUE(Shows(R"("certificate":null)")) << Shown();
    EXPECT_EQ(SetData(kName, 1, "value"), softkey::kKeyRemoved);
    EXPECT_EQ(Data(1).text, "value");
    EXPECT_EQ(SetData(kName, 1, "value"), 0);
}

TEST_F(Plans, silent_succeeds_and_hands_nothing_out) {
    Misbehave("silent");
    EXPECT_EQ(Label().code, 0);
    EXPECT_EQ(Label().text, "");
    EXPECT_EQ(ReadCertificate(kSerial, kSigning, kSm2).text, "");
    EXPECT_EQ(MakeRequests(kSerial, kSigningRequest).code, 0);
    EXPECT_EQ(MakeRequests(kSerial, kSigningRequest).text, "");
    char text[200] = "?";
    int length = sizeof text;
    EXPECT_EQ(GetErrorMsg(0, text, &length), 0);
    EXPECT_STREQ(text, "");
}

TEST_F(Plans, garbage_is_noise_of_the_right_length) {
    const Answer certificate = ReadCertificate(kSerial, kSigning, kSm2);
    Misbehave("garbage");
    EXPECT_TRUE(IsNoise(Label().text));
    const Answer noise = ReadCertificate(kSerial, kSigning, kSm2);
    EXPECT_EQ(noise.code, 0);
    EXPECT_EQ(noise.text.size(), certificate.text.size());
    EXPECT_TRUE(IsNoise(noise.text));
    EXPECT_TRUE(IsNoise(Signature().text));
    EXPECT_TRUE(IsNoise(MakeRequests(kSerial, kSigningRequest).text));
}

TEST_F(Plans, cut_is_the_first_half) {
    const Answer certificate = ReadCertificate(kSerial, kSigning, kSm2);
    Misbehave("cut");
    EXPECT_EQ(ReadCertificate(kSerial, kSigning, kSm2).text,
              certificate.text.substr(0, certificate.text.size() / 2));
    EXPECT_EQ(Label().text, "FLOW");
}

// The library reads its own buffers no further than their ends.
TEST_F(Plans, unterminated_fills_the_librarys_buffers) {
    Misbehave("unterminated");
    char text[600] = "";
    int length = sizeof text;
    EXPECT_EQ(GetLabel(kSerial, text, &length), 0);
    EXPECT_EQ(std::string(text), kSerial + std::string(512 - sizeof kSerial + 1, 'x'));
    EXPECT_EQ(length, 512);
    std::string buffer(1100, '\xEE');
    unsigned room = 1000;
    EXPECT_EQ(GetCert(kSerial, kSigning, kSm2, buffer.data(), &room), 0);
    EXPECT_EQ(buffer.find('\0'), 1000U);
    EXPECT_EQ(buffer.substr(1001), std::string(99, '\xEE'));
    EXPECT_EQ(PrintNumber().text.size(), 1024U);
}

TEST_F(Plans, liar_overstates_each_length) {
    Misbehave("liar");
    std::string buffer(64, '\xEE');
    unsigned length = 32;
    EXPECT_EQ(GetCert(kSerial, kSigning, kSm2, buffer.data(), &length), KESTA_BUFFER_TOO_SMALL);
    EXPECT_EQ(length, 100000U);
    EXPECT_EQ(buffer, std::string(64, '\xEE'));
    char signature[200];
    length = sizeof signature;
    EXPECT_EQ(SignHash(kSerial, kSm2, kSm3, ToBase64(std::string(32, 'h')).c_str(), 0, signature,
                       &length),
              0);
    EXPECT_EQ(length, 100000U);
}

TEST_F(Plans, throws_sends_each_third_exception_through_the_library) {
    Misbehave("throws");
    EXPECT_EQ(Label().code, 0);
    EXPECT_EQ(Label().code, 0);
    EXPECT_THROW(Label(), std::runtime_error);
    EXPECT_EQ(Label().code, 0);
    EXPECT_EQ(SetLabel(kSerial, "label"), 0);
    EXPECT_THROW(SetLabel(kSerial, "other"), std::runtime_error);
    EXPECT_EQ(Label().text, "label");
}

TEST_F(Plans, crash_takes_the_process_down_and_leaves_the_key_as_it_was) {
    Misbehave("crash");
    const std::string before = Shown();
    const pid_t client = fork();
    if (client == 0) {
        std::signal(SIGSEGV, SIG_DFL);
        Signature();
        _exit(0);
    }
    int status = 0;
    waitpid(client, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGSEGV) << status;
    EXPECT_EQ(Shown(), before);
    Softkey({"check"});
    Softkey({"misbehave", "--clear"});
    EXPECT_EQ(Signature().code, 0);
}

TEST_F(Plans, full_has_room_for_two_pairs_and_two_objects) {
    Misbehave("full");
    EXPECT_EQ(MakeRequests(kSerial, kSigningRequest).code, softkey::kStateFull);
    EXPECT_EQ(Message(softkey::kStateFull).text, "UKey 存储空间不足");
    EXPECT_EQ(SetData(kName, 1, "value"), 0);
    EXPECT_EQ(SetData(kName, 2, "value"), 0);
    EXPECT_EQ(SetData(kName, 3, "value"), softkey::kStateFull);
    EXPECT_EQ(SetData(kName, 2, "another"), 0);
    EXPECT_EQ(DelCertAndTempKey(kSerial, kSigning, kSm2), 0);
    EXPECT_EQ(MakeRequests(kSerial, kSigningRequest).code, 0);
}

TEST_F(Plans, locked_soon_leaves_one_try) {
    Misbehave("locked-soon");
    char tries[8];
    unsigned length = sizeof tries;
    ASSERT_EQ(GetPinInfo(kSerial, tries, &length), 0);
    EXPECT_EQ(tries[0], 1);
    EnterPin("000000");
    EXPECT_EQ(VerifyPIN(kSerial), softkey::kPinLocked);
    EnterPin(kPin);
    EXPECT_EQ(VerifyPIN(kSerial), softkey::kPinLocked);
}

TEST_F(Plans, taken_is_for_one_process_at_a_time) {
    Misbehave("taken");
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const pid_t first = fork();
    if (first == 0) {
        close(ends[1]);
        char end = 0;
        const bool good = Label().code == 0;
        Softkey({"button", "ask"});  // what the parent waits for
        _exit(read(ends[0], &end, 1) == 0 && good ? 0 : 1);
    }
    close(ends[0]);
    EXPECT_TRUE(Eventually([] { return Shows(R"("button":"ask")"); }));
    EXPECT_EQ(Label().code, softkey::kStateBusy);
    close(ends[1]);
    int status = -1;
    waitpid(first, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(Label().code, 0);
}

TEST_F(Plans, foreign_device_arrives_and_is_no_key) {
    EXPECT_EQ(Waits(1, {{"misbehave", "foreign-device"}}),
              "+" + std::to_string(softkey::kNotSupported));
    EXPECT_EQ(PrintNumber().text, kSerial);
    EXPECT_EQ(Waits(1, {{"misbehave", "--clear"}}), "-");
}

TEST_F(Plans, lost_events_are_each_second_one) {
    Misbehave("lost-events");
    EXPECT_EQ(Waits(2, {{"remove"}, {"insert"}, {"remove"}}), "--");
}

TEST_F(Plans, late_events_come_after_the_next_one) {
    Misbehave("late-events");
    EXPECT_EQ(Waits(3, {{"remove"}, {"insert"}, {"remove"}}), "--+");
}

}  // namespace
