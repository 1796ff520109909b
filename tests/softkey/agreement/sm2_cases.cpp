// Random SM2 cases for other implementations, and the judge of theirs. Fields of a line, in
// hexadecimal but for the last ones, which say in what form they are (der: or raw:, x || y || hash
// || text):
//   sm2_cases make COUNT   number point text signature(r || s) sealed-number number der:CIPHER
//   raw:CIPHER
//                          where CIPHER is the SM4 key that sealed-number is under
//   sm2_cases judge        reads number point text signature cipher, theirs of the text
// Status 1, and the case on the error output, where two disagree.
#include <openssl/rand.h>

#include <iostream>
#include <sstream>

#include "sm2_support.h"
#include "softkey/crypto/decryption.h"
#include "softkey/crypto/envelope.h"
#include "softkey/crypto/signature.h"

using namespace softkey;

namespace {

int disagreements = 0;

void Expect(bool holds, const char* what, const std::string& about) {
    if (holds) return;
    ++disagreements;
    std::cerr << what << ": " << about << '\n';
}

// By OpenSSL alone.
bool Good(EVP_PKEY* pair, const std::string& text, const Bytes& signature) {
    const MdCtxPtr ctx(EVP_MD_CTX_new());
    EVP_PKEY_CTX* keyCtx = nullptr;
    return EVP_DigestVerifyInit(ctx.get(), &keyCtx, EVP_sm3(), nullptr, pair) == 1 &&
           EVP_PKEY_CTX_set1_id(keyCtx, kSm2Identity.data(), kSm2Identity.size()) == 1 &&
           EVP_DigestVerifyUpdate(ctx.get(), text.data(), text.size()) == 1 &&
           EVP_DigestVerifyFinal(ctx.get(), signature.data(), signature.size()) == 1;
}

Bytes Random(std::size_t size) {
    Bytes bytes(size);
    RAND_bytes(bytes.data(), static_cast<int>(size));
    return bytes;
}

Bytes Encrypted(EVP_PKEY* pair, const std::string& text) {
    const PKeyCtxPtr ctx(EVP_PKEY_CTX_new_from_pkey(nullptr, pair, nullptr));
    const auto* const plain = reinterpret_cast<const unsigned char*>(text.data());
    std::size_t length = text.size() + 200;
    Bytes cipher(length);
    if (EVP_PKEY_encrypt_init(ctx.get()) != 1 ||
        EVP_PKEY_encrypt(ctx.get(), cipher.data(), &length, plain, text.size()) != 1) {
        throw std::runtime_error("OpenSSL cannot encrypt");
    }
    cipher.resize(length);
    return cipher;
}

bool Decrypts(EVP_PKEY* pair, const Bytes& cipher, const std::string& text) {
    const auto plain = Decrypt(pair, cipher);
    return plain && std::string(plain->data(), plain->data() + plain->size()) == text;
}

void Make(int count) {
    for (int i = 0; i < count; ++i) {
        const PKeyPtr pair = GeneratePair(Algorithm::kSm2);
        const PKeyPtr escrowed = GeneratePair(Algorithm::kSm2);
        const Bytes bytes = Random(1 + Random(1)[0]);
        const std::string text(bytes.begin(), bytes.end());
        const Bytes signature = SignText(pair.get(), 3, text);
        const DerNode envelope = DerNode::Parse(SealEnvelope(pair.get(), escrowed.get()));
        const DerNode& cipher = envelope.children.at(1);
        const Bytes& sealed = envelope.children.at(3).content;
        std::ostringstream line;
        line << ToHex(NumberOf(pair.get())) << ' ' << ToHex(PointOf(pair.get())) << ' '
             << ToHex(bytes) << ' ' << ToHex(RawOf(DerNode::Parse(signature))) << ' '
             << ToHex(Bytes(sealed.begin() + 1, sealed.end())) << ' '
             << ToHex(NumberOf(escrowed.get())) << " der:" << ToHex(cipher.Encode())
             << " raw:" << ToHex(RawOf(cipher));
        Expect(Good(pair.get(), text, signature), "OpenSSL refuses the signature", line.str());
        Expect(Decrypts(pair.get(), Encrypted(pair.get(), text), text),
               "what OpenSSL encrypted is not decrypted", line.str());
        std::cout << line.str() << '\n';
    }
}

void Judge() {
    std::string number, point, text, signature, cipher;
    int count = 0;
    while (std::cin >> number >> point >> text >> signature >> cipher) {
        const PKeyPtr pair = PairOf(FromHexText(number), FromHexText(point));
        const Bytes plain = FromHexText(text);
        const std::string expected(plain.begin(), plain.end());
        const std::string about = number + " " + text + " " + signature + " " + cipher;
        const Bytes theirs = FromHexText(cipher.substr(4));
        Expect(Good(pair.get(), expected, SignatureOf(FromHexText(signature))),
               "their signature is bad", about);
        Expect(Decrypts(pair.get(), cipher.rfind("raw:", 0) == 0 ? CipherOf(theirs) : theirs,
                        expected),
               "their cipher text is not decrypted", about);
        ++count;
    }
    std::cout << count << '\n';
}

}  // namespace

int main(int count, char** arguments) {
    const std::string what = count > 1 ? arguments[1] : "";
    if (what == "make" && count == 3) {
        Make(std::atoi(arguments[2]));
    } else if (what == "judge") {
        Judge();
    } else {
        std::cerr << "usage: sm2_cases make COUNT | sm2_cases judge\n";
        return 2;
    }
    return disagreements == 0 ? 0 : 1;
}
