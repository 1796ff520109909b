#include "exports.h"

#include <vector>

#include "kesta_unified_zrkukey.h"

namespace flow {
namespace {

// call(buffer, length): first the probe, then with one byte more than the probe asked for, since
// some lengths leave out the NUL.
template <typename Length, typename Call>
Answer Twice(Call call) {
    Length length = 0;
    int code = call(nullptr, &length);
    if (code != 0) return {code, {}};
    std::vector<char> buffer(static_cast<std::size_t>(length) + 1, '\0');
    length = static_cast<Length>(buffer.size());
    code = call(buffer.data(), &length);
    return {code, code == 0 ? std::string(buffer.data()) : std::string()};
}

}  // namespace

Answer PrintNumber() {
    return Twice<unsigned>(
        [](char* text, unsigned* length) { return GetPrintNumber(text, length); });
}

Answer MakeRequests(const std::string& serial, const std::string& information) {
    return Twice<int>([&](char* text, int* length) {
        return GenerateCertRequest(serial.c_str(), information.c_str(), text, length);
    });
}

Answer MakeBatchRequests(const std::string& serial, int initialise,
                         const std::string& information) {
    return Twice<int>([&](char* text, int* length) {
        return Batch_InitAndGenerateCertRequest(serial.c_str(), initialise, information.c_str(),
                                                text, length);
    });
}

Answer ReadCertificate(const std::string& serial, unsigned certType, unsigned keyType) {
    return Twice<unsigned>([&](char* text, unsigned* length) {
        return GetCert(serial.c_str(), certType, keyType, text, length);
    });
}

Answer ReadName(const std::string& serial, unsigned certType, unsigned keyType) {
    return Twice<int>([&](char* text, int* length) {
        return GetCertDN(serial.c_str(), certType, keyType, text, length);
    });
}

Answer SignText(const std::string& serial, int keyType, int hashType, const std::string& text,
                const std::string& warning) {
    return Twice<unsigned>([&](char* signature, unsigned* length) {
        return Sign(serial.c_str(), keyType, hashType, text.c_str(), warning.c_str(), signature,
                    length);
    });
}

Answer SignDigest(const std::string& serial, int keyType, int hashType, const std::string& hash) {
    return Twice<unsigned>([&](char* signature, unsigned* length) {
        return SignHash(serial.c_str(), keyType, hashType, hash.c_str(), 0, signature, length);
    });
}

Answer SignList(const std::string& serial, int keyType, int hashType, const std::string& list) {
    std::string name = serial;
    return Twice<unsigned>([&](char* signatures, unsigned* length) {
        return Batch_Sign(0, name.data(), keyType, hashType, nullptr, nullptr, nullptr, 0, 0,
                          list.c_str(), 0, signatures, length);
    });
}

Answer Decrypt(const std::string& serial, const std::string& cipher) {
    return Twice<unsigned>([&](char* plain, unsigned* length) {
        return AsymDec(serial.c_str(), 3, 2, cipher.c_str(), plain, length);
    });
}

Answer Message(int code) {
    return Twice<int>([&](char* text, int* length) { return GetErrorMsg(code, text, length); });
}

}  // namespace flow
