// What the holder of a certificate can do without the key: verify its signatures, encrypt for it.
#ifndef KIT_PUBLIC_KEY_H
#define KIT_PUBLIC_KEY_H

#include <memory>
#include <string>
#include <string_view>

namespace kit {

class PublicKey {
public:
    // certificate: as ReadFacts takes it. Without a usable one everything fails.
    explicit PublicKey(const std::string& certificate);
    ~PublicKey();
    PublicKey(const PublicKey&) = delete;
    PublicKey& operator=(const PublicKey&) = delete;

    // signature: Base64, of the text with the pair's usual hash: SM3 and the usual identity for
    // SM2, SHA-256 otherwise.
    bool Verifies(std::string_view text, const std::string& signature) const;
    // Base64; empty when it cannot be done.
    std::string Encrypted(std::string_view text) const;

private:
    struct Key;
    std::unique_ptr<Key> key_;
};

}  // namespace kit

#endif
