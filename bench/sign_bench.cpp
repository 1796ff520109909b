// Signatures per second through the shipped library and the software key, beside what OpenSSL makes
// of the same kind of key in the same run. Both take turns, one signature each, and the medians are
// compared: what else the machine does then falls on both alike and moves neither.
#include <benchmark/benchmark.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "kesta_unified_zrkukey.h"

namespace {

constexpr int kSm2 = 2, kSm3 = 3, kAnyWriting = 0;
constexpr char kSerial[] = "BENCH0001";
constexpr char kText[] = "transfer 100.00 to account 4711";
constexpr char kWarning[] = "Transfer 100.00 to account 4711?";
constexpr char kHash[] = "66c7f0f462eeedd9d1f2d46bdc10e4e24167c4875cf2f7a2297da02b8f4ba8e0";
constexpr std::string_view kIdentity = "1234567812345678";
constexpr int kMaxText = 4096;

void Require(bool held, const std::string& what) {
    if (!held) throw std::runtime_error(what);
}

struct OpensslFree {
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
    void operator()(EVP_PKEY_CTX* context) const { EVP_PKEY_CTX_free(context); }
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
    void operator()(X509_REQ* request) const { X509_REQ_free(request); }
};
template <typename T>
using Owned = std::unique_ptr<T, OpensslFree>;

using Bytes = std::vector<unsigned char>;

Bytes FromBase64(const std::string& text) {
    Bytes bytes(text.size() + 3);
    const int size = EVP_DecodeBlock(bytes.data(), reinterpret_cast<const unsigned char*>(&text[0]),
                                     static_cast<int>(text.size()));
    Require(size > 0, "not Base64: " + text);
    // The padding counts as bytes there.
    const auto padding =
        std::count(text.end() - std::min<std::ptrdiff_t>(2, size), text.end(), '=');
    bytes.resize(static_cast<std::size_t>(size - padding));
    return bytes;
}

// A software key of its own, on the disk where a user's would be, with one SM2 signing pair.
class Key {
public:
    Key() {
        char folder[] = "sign-bench-XXXXXX";
        Require(mkdtemp(folder) != nullptr, "no folder can be made here");
        home_ = std::filesystem::absolute(folder);
        setenv("KESTA_SOFTKEY_HOME", home_.c_str(), 1);
        setenv("KESTA_SOFTKEY_PIN", "135790", 1);
        const std::string create = std::string("'") + KESTA_SOFTKEY_COMMAND + "' create --serial " +
                                   kSerial + " >/dev/null";
        Require(std::system(create.c_str()) == 0, "softkey create failed");
        char request[kMaxText];
        int length = sizeof request;
        Require(GenerateCertRequest(kSerial, "CertType(1)KeyType(2)HashType(3)", request,
                                    &length) == KESTA_OK,
                "no request: " + std::to_string(G_LastError));
        Require(VerifyPIN(kSerial) == KESTA_OK, "VerifyPIN: " + std::to_string(G_LastError));
        const Bytes der = FromBase64(request);
        const unsigned char* at = der.data();
        const Owned<X509_REQ> parsed(d2i_X509_REQ(nullptr, &at, static_cast<long>(der.size())));
        Require(parsed != nullptr, "the request cannot be read");
        public_.reset(X509_REQ_get_pubkey(parsed.get()));
    }
    ~Key() { std::filesystem::remove_all(home_); }
    Key(const Key&) = delete;
    Key& operator=(const Key&) = delete;

    EVP_PKEY* Public() const { return public_.get(); }

    static std::string Sign() {
        char signature[kMaxText];
        unsigned length = sizeof signature;
        const int code = ::Sign(kSerial, kSm2, kSm3, kText, kWarning, signature, &length);
        Require(code == KESTA_OK, "Sign: " + std::to_string(code));
        return signature;
    }

    static std::string SignHash() {
        char signature[2 * sizeof kHash + 8192];  // as much as the probe asks for
        unsigned length = sizeof signature;
        const int code = ::SignHash(kSerial, kSm2, kSm3, kHash, kAnyWriting, signature, &length);
        Require(code == KESTA_OK, "SignHash: " + std::to_string(code));
        return signature;
    }

private:
    std::filesystem::path home_;
    Owned<EVP_PKEY> public_;
};

// OpenSSL alone, with everything prepared that can be prepared.
class Openssl {
public:
    Openssl()
        : pair_(EVP_PKEY_Q_keygen(nullptr, nullptr, "SM2")),
          ofText_(EVP_PKEY_CTX_new_from_pkey(nullptr, pair_.get(), nullptr)),
          ofHash_(EVP_PKEY_CTX_new_from_pkey(nullptr, pair_.get(), nullptr)),
          text_(EVP_MD_CTX_new()),
          signature_(static_cast<std::size_t>(EVP_PKEY_get_size(pair_.get()))) {
        Require(SetIdentity(ofText_.get()) && EVP_PKEY_sign_init(ofHash_.get()) == 1,
                "OpenSSL does not sign with SM2");
        EVP_MD_CTX_set_pkey_ctx(text_.get(), ofText_.get());
    }

    static bool SetIdentity(EVP_PKEY_CTX* context) {
        return EVP_PKEY_CTX_set1_id(context, kIdentity.data(),
                                    static_cast<int>(kIdentity.size())) == 1;
    }

    EVP_PKEY* Public() const { return pair_.get(); }

    Bytes Sign() {
        std::size_t length = signature_.size();
        Require(EVP_DigestSignInit(text_.get(), nullptr, EVP_sm3(), nullptr, pair_.get()) == 1 &&
                    EVP_DigestSign(text_.get(), signature_.data(), &length,
                                   reinterpret_cast<const unsigned char*>(kText),
                                   sizeof kText - 1) == 1,
                "EVP_DigestSign");
        return {signature_.begin(), signature_.begin() + static_cast<std::ptrdiff_t>(length)};
    }

    Bytes SignHash() {
        std::size_t length = signature_.size();
        Require(EVP_PKEY_sign(ofHash_.get(), signature_.data(), &length, Hash().data(),
                              Hash().size()) == 1,
                "EVP_PKEY_sign");
        return {signature_.begin(), signature_.begin() + static_cast<std::ptrdiff_t>(length)};
    }

    static const Bytes& Hash() {
        static const Bytes hash = [] {
            long size = 0;
            unsigned char* const bytes = OPENSSL_hexstr2buf(kHash, &size);
            Bytes copy(bytes, bytes + size);
            OPENSSL_free(bytes);
            return copy;
        }();
        return hash;
    }

private:
    Owned<EVP_PKEY> pair_;
    Owned<EVP_PKEY_CTX> ofText_, ofHash_;
    Owned<EVP_MD_CTX> text_;
    Bytes signature_;
};

bool VerifiesText(EVP_PKEY* key, const Bytes& signature) {
    const Owned<EVP_PKEY_CTX> context(EVP_PKEY_CTX_new_from_pkey(nullptr, key, nullptr));
    const Owned<EVP_MD_CTX> digest(EVP_MD_CTX_new());
    Require(Openssl::SetIdentity(context.get()), "no identity");
    EVP_MD_CTX_set_pkey_ctx(digest.get(), context.get());
    return EVP_DigestVerifyInit(digest.get(), nullptr, EVP_sm3(), nullptr, key) == 1 &&
           EVP_DigestVerify(digest.get(), signature.data(), signature.size(),
                            reinterpret_cast<const unsigned char*>(kText), sizeof kText - 1) == 1;
}

bool VerifiesHash(EVP_PKEY* key, const Bytes& signature) {
    const Owned<EVP_PKEY_CTX> context(EVP_PKEY_CTX_new_from_pkey(nullptr, key, nullptr));
    const Bytes& hash = Openssl::Hash();
    return EVP_PKEY_verify_init(context.get()) == 1 &&
           EVP_PKEY_verify(context.get(), signature.data(), signature.size(), hash.data(),
                           hash.size()) == 1;
}

template <typename Work>
double Seconds(Work work) {
    const auto start = std::chrono::steady_clock::now();
    benchmark::DoNotOptimize(work());
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// The time that a share of the times stays below.
double Quantile(std::vector<double>& times, double share) {
    const auto at = static_cast<std::ptrdiff_t>(static_cast<double>(times.size()) * share);
    std::nth_element(times.begin(), times.begin() + at, times.end());
    return times[static_cast<std::size_t>(at)];
}

// ratio: how many signatures the key makes while OpenSSL makes one, by the medians. undisturbed:
// the same by the fastest tenth of each, which a crowded machine slows down least.
template <typename Mine, typename Theirs>
void Compare(benchmark::State& state, Mine mine, Theirs theirs) {
    std::vector<double> key, openssl;
    for (auto _ : state) {
        key.push_back(Seconds(mine));
        openssl.push_back(Seconds(theirs));
    }
    const double undisturbed = Quantile(openssl, 0.1) / Quantile(key, 0.1);
    const double keyTime = Quantile(key, 0.5), opensslTime = Quantile(openssl, 0.5);
    state.counters["key_per_s"] = 1 / keyTime;
    state.counters["openssl_per_s"] = 1 / opensslTime;
    state.counters["ratio"] = opensslTime / keyTime;
    state.counters["undisturbed"] = undisturbed;
}

void Run() {
    const Key key;
    Openssl openssl;
    // A rate counts only for signatures that are good.
    Require(VerifiesText(key.Public(), FromBase64(Key::Sign())), "Sign: a bad signature");
    Require(VerifiesHash(key.Public(), FromBase64(Key::SignHash())), "SignHash: a bad signature");
    Require(VerifiesText(openssl.Public(), openssl.Sign()), "EVP_DigestSign: a bad signature");
    Require(VerifiesHash(openssl.Public(), openssl.SignHash()), "EVP_PKEY_sign: a bad signature");
    const auto both = [](const char* name, auto mine, auto theirs) {
        benchmark::RegisterBenchmark(name,
                                     [=](benchmark::State& state) { Compare(state, mine, theirs); })
            ->Iterations(2000)
            ->Unit(benchmark::kMicrosecond);
    };
    both("Sign_beside_EVP_DigestSign", Key::Sign, [&] { return openssl.Sign(); });
    both("SignHash_beside_EVP_PKEY_sign", Key::SignHash, [&] { return openssl.SignHash(); });
    benchmark::RunSpecifiedBenchmarks();
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    try {
        Run();
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "sign_bench: %s\n", failure.what());
        return 1;
    }
}
