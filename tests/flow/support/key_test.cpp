#include "key_test.h"

#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <thread>

namespace flow {
namespace {

std::string ReadAll(int descriptor) {
    std::string text;
    char part[4096];
    ssize_t count;
    while ((count = read(descriptor, part, sizeof part)) > 0) {
        text.append(part, static_cast<std::size_t>(count));
    }
    return text;
}

// child() runs in the child and returns its status; what it writes to the descriptor is the output.
Finished Fork(const std::function<int(int)>& child) {
    int ends[2];
    if (pipe(ends) != 0) throw std::runtime_error("pipe failed");
    const pid_t pid = fork();
    if (pid < 0) throw std::runtime_error("fork failed");
    if (pid == 0) {
        close(ends[0]);
        _exit(child(ends[1]));
    }
    close(ends[1]);
    const std::string output = ReadAll(ends[0]);
    close(ends[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    if (!WIFEXITED(status)) throw std::runtime_error("a child was ended by a signal: " + output);
    return {WEXITSTATUS(status), output};
}

void WriteFile(const std::string& path, const std::string& text) {
    std::ofstream file(path);
    file << text;
    if (!file.flush()) throw std::runtime_error("cannot write " + path);
}

}  // namespace

std::string Softkey(const std::vector<std::string>& arguments) {
    return Noted([&] { return RunSoftkey(arguments); });
}

std::string RunSoftkey(const std::vector<std::string>& arguments) {
    const Finished run = Fork([&](int output) {
        std::vector<std::string> command = Split(KESTA_EMULATOR, ";");
        if (command.front().empty()) command.clear();
        command.emplace_back(KESTA_SOFTKEY_COMMAND);
        command.insert(command.end(), arguments.begin(), arguments.end());
        std::vector<char*> words;
        for (std::string& word : command) words.push_back(word.data());
        words.push_back(nullptr);
        dup2(output, STDOUT_FILENO);
        dup2(output, STDERR_FILENO);
        execvp(words[0], words.data());
        return 127;
    });
    if (run.status != 0) throw std::runtime_error("softkey: " + run.output);
    return run.output;
}

Finished InAnotherProcess(const std::function<int(std::string&)>& work) {
    Noted([] { return std::string(); });  // so that each of them has a row of notes of its own
    return Fork([&](int descriptor) {
        std::string output;
        const int status = work(output);
        const ssize_t written = write(descriptor, output.data(), output.size());
        return written == static_cast<ssize_t>(output.size()) ? status : 255;
    });
}

bool Eventually(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (std::chrono::steady_clock::now() < end) {
        if (condition()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return condition();
}

KeyTest::KeyTest(const std::vector<std::string>& options) {
    setenv("KESTA_SOFTKEY_HOME", "/tmp/softkey", 1);
    unsetenv("KESTA_SOFTKEY_NEW_PIN");
    unsetenv("KESTA_SOFTKEY_BUTTON_MS");
    EnterPin(kPin);
    std::vector<std::string> create = {"create", "--serial", kSerial};
    create.insert(create.end(), options.begin(), options.end());
    Softkey(create);
}

void KeyTest::EnterPin(const char* pin) {
    setenv("KESTA_SOFTKEY_PIN", pin, 1);
}

std::string KeyTest::OneRequest(const std::string& information) const {
    const Answer made = MakeRequests(kSerial, information);
    EXPECT_EQ(made.code, 0) << Message(made.code).text;
    return made.text;
}

std::string KeyTest::Escrow(const std::string& request, EVP_PKEY* pair, bool withHeader) const {
    WriteFile("/tmp/request", request);
    WriteFile("/tmp/pair.pem", PrivatePem(pair));
    std::vector<std::string> arguments = {"envelope", "--to", "/tmp/request", "--pair",
                                          "/tmp/pair.pem"};
    if (withHeader) arguments.emplace_back("--with-header");
    std::string text = Softkey(arguments);
    while (!text.empty() && text.back() == '\n') text.pop_back();
    return text;
}

void KeyTest::Enrol() {
    const std::vector<std::string> requests = Split(OneRequest(kBothRequests), "||");
    ASSERT_EQ(requests.size(), 2U);
    signingCertificate_ = authority_.Issue(Request(requests[0]).PublicKey(), "Signer");
    const Owned<EVP_PKEY> pair = NewSm2Pair();
    encryptionCertificate_ = authority_.Issue(pair.get(), "Recipient");
    ASSERT_EQ(ImportX509Cert(kSerial, signingCertificate_.c_str()), 0);
    ASSERT_EQ(ImportEncX509Cert(kSerial, encryptionCertificate_.c_str(),
                                Escrow(requests[1], pair.get(), true).c_str()),
              0);
}

}  // namespace flow
