#include "softkey/store/guard.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <algorithm>
#include <cstring>

#include "softkey/crypto/openssl_errors.h"
#include "softkey/crypto/secret_bytes.h"
#include "softkey/crypto/vault.h"

namespace softkey {
namespace {

constexpr std::array<std::uint8_t, 8> kMagic{'S', 'K', 'G', 'U', 'A', 'R', 'D', '2'};

Digest Hmac(const Digest& key, const std::uint8_t* bytes, std::size_t size) {
    KeepOpenssl();
    Digest digest{};
    Require(HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()), bytes, size, digest.data(),
                 nullptr) != nullptr,
            "the digest of the state");
    return digest;
}

// Numbers stand in the machine's order: a state does not travel between machines of two orders.
void Put(std::uint8_t*& at, const void* bytes, std::size_t size) {
    std::memcpy(at, bytes, size);
    at += size;
}

void Take(const std::uint8_t*& at, void* bytes, std::size_t size) {
    std::memcpy(bytes, at, size);
    at += size;
}

}  // namespace

Guard Guard::Make() {
    KeepOpenssl();
    Guard guard;
    FillRandom(guard.key_.data(), guard.key_.size());
    return guard;
}

Guard::Text Guard::Write() const {
    Text text{};
    std::uint8_t* at = text.data();
    Put(at, kMagic.data(), kMagic.size());
    Put(at, key_.data(), key_.size());
    for (const StateName* name : {&before, &after}) {
        Put(at, &name->number, sizeof name->number);
        Put(at, name->digest.data(), name->digest.size());
    }
    const Digest own = Hmac(key_, text.data(), kSize - sizeof(Digest));
    Put(at, own.data(), own.size());
    return text;
}

std::optional<Guard> Guard::Read(const Text& text) {
    if (!std::equal(kMagic.begin(), kMagic.end(), text.begin())) return std::nullopt;
    Guard guard;
    Digest own{};
    const std::uint8_t* at = text.data() + kMagic.size();
    Take(at, guard.key_.data(), guard.key_.size());
    for (StateName* name : {&guard.before, &guard.after}) {
        Take(at, &name->number, sizeof name->number);
        Take(at, name->digest.data(), name->digest.size());
    }
    Take(at, own.data(), own.size());
    if (own != Hmac(guard.key_, text.data(), kSize - sizeof(Digest))) return std::nullopt;
    return guard;
}

Digest Guard::DigestOf(const Bytes& image) const {
    return Hmac(key_, image.data(), image.size());
}

const StateName* Guard::Find(const Bytes& image) const {
    const Digest digest = DigestOf(image);
    for (const StateName* name : {&after, &before}) {
        if (name->digest == digest) return name;
    }
    return nullptr;
}

}  // namespace softkey
