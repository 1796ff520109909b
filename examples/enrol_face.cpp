// enrol_face: makes certificate requests on the key and installs what the certificate authority
// sends back, through the C++ face.
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>

#include "kesta/ukey.hpp"

namespace {

const char kUsage[] =
    "usage: enrol_face\n"
    "       enrol_face --import SIGNING-CERT [ENCRYPTION-KEY ENCRYPTION-CERT]\n"
    "\n"
    "The first form prints two requests, one on each line: for an SM2 signing pair and for an SM2\n"
    "encryption pair. The second form installs the answers.\n"
    "\n"
    "examples:\n"
    "  enrol_face > requests.txt\n"
    "  enrol_face --import sign.cer enc.key enc.cer\n";

std::string Read(const char* path) {
    std::ifstream file(path);
    if (!file) throw std::runtime_error(std::string(path) + " cannot be read");
    return std::string(std::istreambuf_iterator<char>(file), {});
}

void MakeRequests(const kesta::Library& key, const std::string& serial) {
    // CertType 1 is a signing pair, 3 an encryption pair; KeyType 2 is SM2; HashType 3 is SM3.
    const std::string information = kesta::RequestInfo({{1, 2, 3}, {3, 2, 3}});
    for (const std::string& request : key.GenerateCertRequest(serial, information)) {
        std::cout << request << '\n';
    }
}

void Import(const kesta::Library& key, const std::string& serial, int count, char** arguments) {
    key.ImportX509Cert(serial, Read(arguments[2]));
    std::cout << "signing certificate installed\n";
    if (count < 5) return;
    key.VerifyPIN(serial);
    key.ImportEncX509Cert(serial, Read(arguments[4]), Read(arguments[3]));
    std::cout << "encryption key and certificate installed\n";
}

}  // namespace

int main(int count, char** arguments) {
    const bool importing = count > 1 && std::string(arguments[1]) == "--import";
    if (importing ? count != 3 && count != 5 : count != 1) {
        const bool help = count == 2 && std::string(arguments[1]) == "--help";
        (help ? std::cout : std::cerr) << kUsage;
        return help ? 0 : 2;
    }
    try {
        const auto key = kesta::Library::Linked();
        const std::string serial = key.GetPrintNumber();
        if (importing) {
            Import(key, serial, count, arguments);
        } else {
            MakeRequests(key, serial);
        }
        return 0;
    } catch (const std::exception& error) {
        // A kesta::Error tells operation, message and code.
        std::cerr << "enrol_face: " << error.what() << '\n';
        return 1;
    }
}
