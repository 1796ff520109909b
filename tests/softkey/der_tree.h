// ASN.1 as a tree that can be written again with one element changed: cases that must be refused.
#ifndef TESTS_SOFTKEY_DER_TREE_H
#define TESTS_SOFTKEY_DER_TREE_H

#include <openssl/asn1.h>

#include <stdexcept>
#include <vector>

#include "softkey/store/records.h"

enum class DerChange {
    kNone,
    kLengthTooLong,
    kLengthTooShort,
    kLongForm,
    kIndefinite,
    kOtherTag,
    kRemoved,
    kDoubled,
    kEmptied
};

inline const char* NameOf(DerChange change) {
    const char* const names[] = {"as it is",
                                 "claims a byte more",
                                 "claims a byte less",
                                 "in long form",
                                 "of indefinite length",
                                 "under another tag",
                                 "left out",
                                 "twice",
                                 "empty"};
    return names[static_cast<int>(change)];
}

struct DerNode {
    std::uint8_t tag = 0;
    softkey::Bytes content{};  // of an element without children
    std::vector<DerNode> children{};
    DerChange change = DerChange::kNone;

    static DerNode Parse(const softkey::Bytes& der) { return List(der.data(), der.size()).at(0); }

    void Collect(std::vector<DerNode*>& all) {
        all.push_back(this);
        for (DerNode& child : children) child.Collect(all);
    }

    softkey::Bytes Encode() const {
        softkey::Bytes inner = content;
        for (const DerNode& child : children) {
            const softkey::Bytes bytes = child.Encode();
            inner.insert(inner.end(), bytes.begin(), bytes.end());
        }
        if (change == DerChange::kRemoved) return {};
        if (change == DerChange::kEmptied) inner.clear();
        const bool indefinite = change == DerChange::kIndefinite && (tag & V_ASN1_CONSTRUCTED) != 0;
        if (indefinite) inner.insert(inner.end(), 2, 0);
        softkey::Bytes out = Header(inner.size(), indefinite);
        out.insert(out.end(), inner.begin(), inner.end());
        if (change == DerChange::kDoubled) out.insert(out.end(), out.begin(), out.end());
        return out;
    }

private:
    static std::vector<DerNode> List(const std::uint8_t* at, std::size_t size) {
        const std::uint8_t* const end = at + size;
        std::vector<DerNode> nodes;
        while (at < end) {
            const std::uint8_t* inner = at;
            long length = 0;
            int number = 0;
            int tagClass = 0;
            const int kind = ASN1_get_object(&inner, &length, &number, &tagClass, end - at);
            if ((kind & 0x80) != 0) throw std::invalid_argument("no DER");
            DerNode node;
            node.tag = *at;
            const auto inside = static_cast<std::size_t>(length);
            if ((kind & V_ASN1_CONSTRUCTED) != 0) {
                node.children = List(inner, inside);
            } else {
                node.content.assign(inner, inner + inside);
            }
            nodes.push_back(std::move(node));
            at = inner + length;
        }
        return nodes;
    }

    softkey::Bytes Header(std::size_t size, bool indefinite) const {
        softkey::Bytes out{change == DerChange::kOtherTag ? static_cast<std::uint8_t>(tag ^ 0x07)
                                                          : tag};
        if (change == DerChange::kLengthTooLong) ++size;
        if (change == DerChange::kLengthTooShort && size > 0) --size;
        const auto low = static_cast<std::uint8_t>(size & 0xFF);
        const auto high = static_cast<std::uint8_t>(size >> 8);
        if (indefinite) {
            out.push_back(0x80);
        } else if (change == DerChange::kLongForm) {
            out.insert(out.end(), {0x83, 0, high, low});
        } else if (size < 0x80) {
            out.push_back(low);
        } else if (size < 0x100) {
            out.insert(out.end(), {0x81, low});
        } else {
            out.insert(out.end(), {0x82, high, low});
        }
        return out;
    }
};

inline softkey::Bytes DerOf(std::uint8_t tag, const softkey::Bytes& content) {
    DerNode node;
    node.tag = tag;
    node.content = content;
    return node.Encode();
}
inline softkey::Bytes DerOctets(const softkey::Bytes& bytes) {
    return DerOf(V_ASN1_OCTET_STRING, bytes);
}
// As short as it can be, and never negative.
inline softkey::Bytes DerInteger(const softkey::Bytes& bytes) {
    std::size_t from = 0;
    while (from + 1 < bytes.size() && bytes[from] == 0) ++from;
    softkey::Bytes number(bytes.begin() + static_cast<std::ptrdiff_t>(from), bytes.end());
    if (number[0] >= 0x80) number.insert(number.begin(), 0);
    return DerOf(V_ASN1_INTEGER, number);
}
inline softkey::Bytes DerSequence(const std::vector<softkey::Bytes>& parts) {
    softkey::Bytes content;
    for (const softkey::Bytes& part : parts)
        content.insert(content.end(), part.begin(), part.end());
    return DerOf(V_ASN1_SEQUENCE | V_ASN1_CONSTRUCTED, content);
}

#endif
