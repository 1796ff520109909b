// A test's own software key: a fresh state folder, the token library loaded from its file, and the
// openssl command as judge.
#ifndef TESTS_SOFTKEY_TOKEN_FIXTURE_H
#define TESTS_SOFTKEY_TOKEN_FIXTURE_H

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "kesta/token_library.h"
#include "softkey/codes.h"
#include "softkey/store/key_admin.h"
#include "softkey/store/store.h"

constexpr const char* kSerial = "KS0000000001";
constexpr const char* kPin = "123456";

// The entry points, bound by name as a client's library does it.
struct TokenLibrary {
#define TEST_ENTRY_POINTER(result, name, arguments) kesta::token::name* name = nullptr;
    KESTA_TOKEN_ENTRY_POINTS(TEST_ENTRY_POINTER)
#undef TEST_ENTRY_POINTER
};

// Loads the library once; ends the test program when an entry point is missing.
const TokenLibrary& Token();

struct Result {
    int code = 0;
    std::string text;
};

class TokenTest : public testing::Test {
protected:
    TokenTest();
    ~TokenTest() override;

    std::string Path(const std::string& name) const { return folder_ + "/" + name; }
    std::string Home() const { return Path("home"); }
    void Write(const std::string& name, std::string_view text) const;
    std::string Read(const std::string& name) const;

    // Runs a shell command in the test's folder; its output, and its status in *status.
    std::string Shell(const std::string& command, int* status) const;
    // The same for a command that must succeed.
    std::string Succeed(const std::string& command) const;

    // A connection as the admin command has it.
    std::unique_ptr<softkey::Store> OpenStore() const { return softkey::Store::Open(Home()); }
    void CreateKey(const std::string& serial = kSerial, const std::string& mediaId = "MEDIA1");
    int TriesLeft(const std::string& serial = kSerial) const;

    // PEM of a text that came from the key.
    static std::string Pem(const std::string& name, const std::string& base64);

    // Calls with buffers of the sizes that the library uses.
    Result Request(std::uint32_t certType, std::uint32_t keyType, std::uint32_t hashType);
    Result PairedRequest();
    int WriteCertificate(const std::string& text);
    int ImportKey(const std::string& text);
    Result Certificate(std::uint32_t certType, std::uint32_t keyType = 0);
    Result SignHash(const std::string& hash, int keyType = 0, int hashType = 0, int writing = 0);
    Result CriticalSign(const std::string& text, int keyType = 0, int hashType = 0);
    Result DecryptText(const std::string& cipher, int certType = 0, unsigned keyType = 0);

    // An authority of the test's own, made once: ca.pem and ca.key in the folder.
    void MakeAuthority();
    // The certificate of a request, as the authority makes it: Base64 of DER.
    std::string Issue(const std::string& request);
    // Makes a request and imports its certificate; the certificate.
    std::string Enrol(std::uint32_t certType, std::uint32_t keyType, std::uint32_t hashType);
    // An encryption pair from the authority, in the file enc.key, sealed to the request.
    std::string Escrow(const std::string& request);

    void SetPin(const char* pin);
    void SetNewPin(const char* pin);

    const TokenLibrary& token = Token();

private:
    std::string folder_;
};

#endif
