// The rules of a certificate bundle and of an escrowed key's text, written out step by step with
// positions: slow and plain. The library's functions are compared with these.
#ifndef KESTA_UNIT_BUNDLE_STEPS_H
#define KESTA_UNIT_BUNDLE_STEPS_H

#include <cctype>
#include <set>
#include <string>
#include <vector>

namespace steps {

inline std::string UpperName(std::string text) {
    for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

// The index of a character at or after a position, or -1.
inline long IndexOf(const std::string& text, char wanted, long from) {
    for (long i = from; i < static_cast<long>(text.size()); ++i) {
        if (text[static_cast<std::size_t>(i)] == wanted) return i;
    }
    return -1;
}

inline std::string Cut(const std::string& text, long from, long to) {
    return to <= from
               ? std::string()
               : text.substr(static_cast<std::size_t>(from), static_cast<std::size_t>(to - from));
}

// 1: malformed, 2: one certificate, 3: a bundle.
inline int Classify(const std::string& text) {
    const long length = static_cast<long>(text.size());
    long p = IndexOf(text, '(', 0);
    if (p == -1 || p == 0) return 2;
    long s = 0;
    for (;;) {
        const std::string name = UpperName(Cut(text, s, p));
        if (name != UpperName("SignCert") && name != UpperName("EncCert") &&
            name != UpperName("EncPriKey")) {
            return 1;
        }
        if (p + 1 > length) return 3;
        const long b = IndexOf(text, '|', p + 1);
        if (b == -1) return 3;
        s = b + 1;
        if (b + 2 > length) return 1;
        p = IndexOf(text, '(', b + 2);
        if (p == -1) return 1;
    }
}

// The contents of one kind's sections, in the order in which they are handled. An opener without
// ")" sends the search back to position 1; the pass ends where it meets an opener once more.
inline std::vector<std::string> Contents(const std::string& text, const std::string& opener) {
    std::vector<std::string> result;
    std::set<long> handled;
    long position = 0;
    while (position <= static_cast<long>(text.size())) {
        const std::size_t found = text.find(opener, static_cast<std::size_t>(position));
        if (found == std::string::npos) break;
        const long at = static_cast<long>(found);
        if (handled.count(at) != 0) break;
        handled.insert(at);
        const long close = IndexOf(text, ')', at);
        if (close == -1) {
            result.emplace_back();
            position = 1;
        } else {
            result.push_back(Cut(text, at + static_cast<long>(opener.size()), close));
            position = close + 2;
        }
    }
    return result;
}

// What of an escrowed key's text is handed on.
inline std::string KeyBody(const std::string& text) {
    const std::string header =
        "0000000000000001000000000000000100000000"
        "0000000000000000000000000000000000000273";
    for (std::size_t i = 0; i + header.size() <= text.size(); ++i) {
        if (text.compare(i, header.size(), header) == 0) return text.substr(80);
    }
    return text;
}

}  // namespace steps

#endif
