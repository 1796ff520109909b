// A test with one fresh software key, inserted. Each runs in a process and a namespace of its own,
// so that library, software key and /tmp are as new.
#ifndef FLOW_KEY_TEST_H
#define FLOW_KEY_TEST_H

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "authority.h"
#include "exports.h"
#include "kesta_unified_zrkukey.h"

namespace flow {

// Numbers of the software key.
constexpr unsigned kSigning = 1, kEncryption = 3;  // CertType
constexpr int kRsa = 1, kSm2 = 2;                  // KeyType
constexpr int kSha256 = 2, kSm3 = 3;               // HashType
constexpr char kSigningRequest[] = "CertType(1)KeyType(2)HashType(3)";
constexpr char kEncryptionRequest[] = "CertType(3)KeyType(2)HashType(3)";
constexpr char kBothRequests[] =
    "CertType(1)KeyType(2)HashType(3)|CertType(3)KeyType(2)HashType(3)";

struct Finished {
    int status;
    std::string output;
};

// The command `softkey`; throws when it fails. What it said is noted.
std::string Softkey(const std::vector<std::string>& arguments);
std::string RunSoftkey(const std::vector<std::string>& arguments);

// Runs work in a child process of this one, which loads the library anew. Its status is what work
// returns, its output what it puts into the text; throws when it is ended by a signal.
Finished InAnotherProcess(const std::function<int(std::string&)>& work);

// Tries for ten seconds.
bool Eventually(const std::function<bool()>& condition);

class KeyTest : public testing::Test {
protected:
    static constexpr char kSerial[] = "FLOW0001";
    static constexpr char kPin[] = "246810";

    // Made with these options of `softkey create` beside the serial number.
    explicit KeyTest(const std::vector<std::string>& options = {});

    static void EnterPin(const char* pin);  // what the person enters from now on

    // A request of one kind, asserted to succeed.
    std::string OneRequest(const std::string& information) const;
    // What the authority sends back for the encryption pair: the pair sealed to the request.
    std::string Escrow(const std::string& request, EVP_PKEY* pair, bool withHeader = false) const;
    // Requests both pairs and imports what the authority answers. The certificates as they went in.
    void Enrol();

    Authority authority_;
    std::string signingCertificate_;
    std::string encryptionCertificate_;
};

}  // namespace flow

#endif
