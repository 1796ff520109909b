#include "token_fixture.h"

#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "softkey/crypto/envelope.h"
#include "softkey/store/keys.h"

namespace {

constexpr const char* kIdentity = "distid:1234567812345678";

TokenLibrary Load() {
    void* const handle = dlopen(TOKEN_LIBRARY, RTLD_LAZY);
    if (handle == nullptr) {
        std::fprintf(stderr, "%s\n", dlerror());
        std::exit(2);
    }
    TokenLibrary library;
#define TEST_BIND_ENTRY(result, name, arguments)                                \
    library.name = reinterpret_cast<kesta::token::name*>(dlsym(handle, #name)); \
    if (library.name == nullptr) {                                              \
        std::fprintf(stderr, "%s lacks %s\n", TOKEN_LIBRARY, #name);            \
        std::exit(2);                                                           \
    }
    KESTA_TOKEN_ENTRY_POINTS(TEST_BIND_ENTRY)
#undef TEST_BIND_ENTRY
    return library;
}

std::string Lines(const std::string& base64) {
    std::string lines;
    for (std::size_t at = 0; at < base64.size(); at += 64) lines += base64.substr(at, 64) + "\n";
    return lines;
}

}  // namespace

const TokenLibrary& Token() {
    static const TokenLibrary library = Load();
    return library;
}

TokenTest::TokenTest() {
    std::string name = (std::filesystem::temp_directory_path() / "softkey-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) std::abort();
    folder_ = name;
    setenv("KESTA_SOFTKEY_HOME", Home().c_str(), 1);
    // Nobody is there to answer; a pinentry of this machine must not be asked.
    setenv("PATH", "/usr/bin:/bin", 1);
    unsetenv("DISPLAY");
    unsetenv("KESTA_SOFTKEY_NEW_PIN");
    unsetenv("KESTA_SOFTKEY_BUTTON_MS");
    SetPin(kPin);
}

TokenTest::~TokenTest() {
    token.GM_RemoveUserPin();
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
}

void TokenTest::Write(const std::string& name, std::string_view text) const {
    std::ofstream(Path(name), std::ios::binary) << text;
}

std::string TokenTest::Read(const std::string& name) const {
    std::ifstream file(Path(name), std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

std::string TokenTest::Shell(const std::string& command, int* status) const {
    const std::string line = "cd '" + folder_ + "' && { " + command + "; } 2>&1";
    FILE* const pipe = popen(line.c_str(), "r");
    if (pipe == nullptr) std::abort();
    std::string output;
    std::array<char, 4096> part{};
    std::size_t length = 0;
    while ((length = fread(part.data(), 1, part.size(), pipe)) > 0) {
        output.append(part.data(), length);
    }
    const int ended = pclose(pipe);
    *status = WIFEXITED(ended) ? WEXITSTATUS(ended) : -1;
    return output;
}

std::string TokenTest::Succeed(const std::string& command) const {
    int status = 0;
    std::string output = Shell(command, &status);
    EXPECT_EQ(status, 0) << command << "\n" << output;
    return output;
}

void TokenTest::CreateKey(const std::string& serial, const std::string& mediaId) {
    softkey::NewKey key;
    key.serial = serial;
    key.mediaId = mediaId;
    key.pinCost = {1024, 8, 1};  // a test makes many guesses
    softkey::CreateKey(*OpenStore(), key, kPin);
}

int TokenTest::TriesLeft(const std::string& serial) const {
    return softkey::KeyTable(*OpenStore()).Find(serial)->triesLeft;
}

std::string TokenTest::Pem(const std::string& name, const std::string& base64) {
    return "-----BEGIN " + name + "-----\n" + Lines(base64) + "-----END " + name + "-----\n";
}

Result TokenTest::Request(std::uint32_t certType, std::uint32_t keyType, std::uint32_t hashType) {
    std::string serial = kSerial;
    char* text = nullptr;
    Result result;
    result.code =
        token.GMCreatePKCS10(serial.data(), certType, keyType, hashType, &text, nullptr, 0);
    const std::unique_ptr<char[]> owner(text);
    if (text != nullptr) result.text = text;
    return result;
}

Result TokenTest::PairedRequest() {
    std::string serial = kSerial;
    KestaRequestRecord record{1, 2, 3, 1, {}};
    char* text = nullptr;
    Result result;
    result.code = token.GMCreatePKCS10Ex(serial.data(), &record, &text, 1, nullptr, 0);
    const std::unique_ptr<char[]> owner(text);
    if (text != nullptr) result.text = text;
    return result;
}

int TokenTest::WriteCertificate(const std::string& text) {
    KestaStringObject unused{nullptr};
    return token.GMWritePKCS7(kSerial, text.c_str(), unused);
}

int TokenTest::ImportKey(const std::string& text) {
    std::array<char, 1024> buffer{};
    text.copy(buffer.data(), buffer.size());
    return token.GMImportPriKey(kSerial, buffer.data(), 0);
}

Result TokenTest::Certificate(std::uint32_t certType, std::uint32_t keyType) {
    std::array<char, 4096> buffer{};
    auto length = static_cast<std::uint32_t>(buffer.size());
    const int code = token.GetCertInfo(kSerial, certType, keyType, buffer.data(), &length);
    if (code == 0) {
        EXPECT_EQ(std::string(buffer.data()).size(), length);
    }
    return {code, buffer.data()};
}

Result TokenTest::SignHash(const std::string& hash, int keyType, int hashType, int writing) {
    std::string serial = kSerial;
    std::string copy = hash;
    std::array<char, 512> buffer{};
    auto length = static_cast<std::uint32_t>(buffer.size());
    const int code = token.GMUsbKeyCommonSign(serial.data(), keyType, hashType, copy.data(),
                                              writing, buffer.data(), &length);
    return {code, buffer.data()};
}

Result TokenTest::CriticalSign(const std::string& text, int keyType, int hashType) {
    std::array<char, 512> buffer{};
    auto length = static_cast<std::uint32_t>(buffer.size());
    const int code = token.GMUsbKeyCriticalSign(kSerial, keyType, hashType, text.c_str(),
                                                buffer.data(), &length);
    return {code, buffer.data()};
}

Result TokenTest::DecryptText(const std::string& cipher, int certType, unsigned keyType) {
    std::string serial = kSerial;
    std::string copy = cipher;
    std::array<char, 4096> buffer{};
    auto length = static_cast<std::uint32_t>(buffer.size());
    const int code = token.GMUSBKeyAsymDec2(serial.data(), certType, keyType, copy.data(),
                                            buffer.data(), &length);
    return {code, code == 0 ? std::string(buffer.data(), length) : std::string()};
}

void TokenTest::MakeAuthority() {
    if (std::filesystem::exists(Path("ca.pem"))) return;
    Succeed(
        "openssl genpkey -algorithm SM2 -out ca.key && openssl req -x509 -new -key ca.key -sm3"
        " -sigopt " +
        std::string(kIdentity) +
        " -subj '/O=Authority/CN=Root' -days 30"
        " -out ca.pem");
}

std::string TokenTest::Issue(const std::string& request) {
    MakeAuthority();
    Write("issue.csr", Pem("CERTIFICATE REQUEST", request));
    // The identity is an option of SM2 alone, and the command fails on what it does not know.
    const bool sm2 = Succeed(
                         "openssl req -in issue.csr -noout -pubkey | openssl pkey -pubin -noout"
                         " -text")
                         .find("SM2") != std::string::npos;
    return Succeed(
        "openssl x509 -req -in issue.csr -CA ca.pem -CAkey ca.key -CAcreateserial -sm3"
        " -sigopt " +
        std::string(kIdentity) + (sm2 ? " -vfyopt " + std::string(kIdentity) : "") +
        " -days 10 -out issue.pem 2>issue.log && openssl x509 -in issue.pem -outform DER"
        " | openssl base64 -A");
}

std::string TokenTest::Enrol(std::uint32_t certType, std::uint32_t keyType,
                             std::uint32_t hashType) {
    const Result request = Request(certType, keyType, hashType);
    EXPECT_EQ(request.code, 0);
    std::string certificate = Issue(request.text);
    EXPECT_EQ(WriteCertificate(certificate), 0);
    return certificate;
}

std::string TokenTest::Escrow(const std::string& request) {
    Succeed("openssl genpkey -algorithm SM2 -out enc.key");
    return softkey::SealEnvelopeText(request, Read("enc.key"));
}

void TokenTest::SetPin(const char* pin) {
    if (pin == nullptr) {
        unsetenv("KESTA_SOFTKEY_PIN");
    } else {
        setenv("KESTA_SOFTKEY_PIN", pin, 1);
    }
}

void TokenTest::SetNewPin(const char* pin) {
    setenv("KESTA_SOFTKEY_NEW_PIN", pin, 1);
}
