// sign_face: signs a text with the key, through the C++ face. The library is loaded at run time, so
// that this program starts, and can say what is missing, where it is not installed.
#include <iostream>
#include <string>

#include "kesta/ukey.hpp"

namespace {

const char kUsage[] =
    "usage: sign_face TEXT WARNING\n"
    "\n"
    "Signs TEXT with the SM2 signing key and prints the signature, Base64 of its DER form. The "
    "key\n"
    "shows WARNING and waits until its button is pressed.\n"
    "\n"
    "example:\n"
    "  sign_face 'pay 12.50 to A. Lovelace' 'Pay 12.50 to A. Lovelace?'\n";

}  // namespace

int main(int count, char** arguments) {
    if (count != 3) {
        const bool help = count == 2 && std::string(arguments[1]) == "--help";
        (help ? std::cout : std::cerr) << kUsage;
        return help ? 0 : 2;
    }
    const auto loaded = kesta::Library::TryLoad();
    if (!loaded) {
        std::cerr << "sign_face: " << loaded.failure().Text() << '\n';
        return 1;
    }
    try {
        const kesta::Key key = loaded.value().PresentKey();
        key.VerifyPIN();
        std::cout << key.Sign(kesta::KeyType::kSm2, kesta::HashType::kSm3, arguments[1],
                              arguments[2])
                  << '\n';
        return 0;
    } catch (const kesta::Error& error) {
        // The kind says what to do, whatever the token library's number is.
        const bool wrong = error.kind() == kesta::Kind::kPinWrong;
        std::cerr << "sign_face: " << error.what() << (wrong ? "; try again" : "") << '\n';
        return 1;
    }
}
