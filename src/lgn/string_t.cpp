#include "lgn/string_t.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace LGN {

namespace {

// The first occurrence of pattern in [from, end), or null. memmem looks at bounded windows: the
// cost of finding the next occurrence then depends on its distance alone, whatever a checked
// build's memmem does with the rest of its range.
const char* Find(const char* from, const char* end, std::string_view pattern) {
    const std::size_t window = std::max<std::size_t>(4096, 4 * pattern.size());
    for (;;) {
        const auto left = static_cast<std::size_t>(end - from);
        const std::size_t n = std::min(window, left);
        if (const void* hit = memmem(from, n, pattern.data(), pattern.size())) {
            return static_cast<const char*>(hit);
        }
        if (n == left) return nullptr;
        from += n - pattern.size() + 1;
    }
}

// The NUL at or after from, or end.
const char* PieceEnd(const char* from, const char* end) {
    const void* nul = std::memchr(from, '\0', static_cast<std::size_t>(end - from));
    return nul == nullptr ? end : static_cast<const char*>(nul);
}

int CountOccurrences(std::string_view text, std::string_view pattern) {
    int count = 0;
    const char* const end = text.data() + text.size();
    for (const char* p = text.data(); p < end;) {
        const char* const stop = PieceEnd(p, end);
        while (const char* hit = Find(p, stop, pattern)) {
            ++count;
            p = hit + pattern.size();
        }
        p = stop + 1;
    }
    return count;
}

// Writes forward into one buffer while reading from a later place of the same buffer.
class Mover {
public:
    explicit Mover(char* to) : to_(to) {}
    char* Position() const { return to_; }
    void Take(const char* from, const char* end) {
        const auto n = static_cast<std::size_t>(end - from);
        std::memmove(to_, from, n);
        to_ += n;
    }

private:
    char* to_;
};

// Replaces in a buffer with room for the longer of both lengths, and fills it to the new one.
void ReplaceIn(char* buffer, int oldLength, int newLength, std::string_view pattern,
               std::string_view replacement) {
    char* const oldEnd = buffer + oldLength;
    // A growing text first moves to the end of its room, so that the writer never overtakes the
    // reader: the gap between them is what the replacements still to come need.
    char* from = buffer + std::max(0, newLength - oldLength);
    std::memmove(from, buffer, static_cast<std::size_t>(oldLength));
    const char* p = from;
    const char* const end = from + oldLength;

    Mover to(buffer);
    while (p < end && to.Position() < oldEnd) {
        const char* const stop = PieceEnd(p, end);
        while (const char* hit = Find(p, stop, pattern)) {
            to.Take(p, hit);
            to.Take(replacement.data(), replacement.data() + replacement.size());
            p = hit + pattern.size();
        }
        const char* const next = stop == end ? end : stop + 1;
        to.Take(p, next);
        p = next;
    }
    to.Take(p, end);
    const auto missing = static_cast<std::size_t>(buffer + newLength - to.Position());
    std::memset(to.Position(), 0, missing);
}

}  // namespace

int CStringT<char, StrTraitLGN<char, ChTraitsEx<char> > >::Replace(const char* pszOld,
                                                                   const char* pszNew) {
    const std::string_view pattern(pszOld == nullptr ? "" : pszOld);
    const std::string_view replacement(pszNew == nullptr ? "" : pszNew);
    if (pattern.empty()) return 0;
    const int count = CountOccurrences(View(), pattern);
    if (count == 0) return 0;

    const int oldLength = GetLength();
    const std::int64_t length =
        oldLength + std::int64_t{count} * (static_cast<std::int64_t>(replacement.size()) -
                                           static_cast<std::int64_t>(pattern.size()));
    if (length > std::numeric_limits<int>::max()) LgnThrow(kInvalidArgument);
    const int newLength = static_cast<int>(length);

    ReplaceIn(PrepareWrite(std::max(oldLength, newLength)), oldLength, newLength, pattern,
              replacement);
    SetLength(newLength);
    return count;
}

CStringT<char, StrTraitLGN<char, ChTraitsEx<char> > >
CStringT<char, StrTraitLGN<char, ChTraitsEx<char> > >::Mid(int iFirst, int nCount) const {
    const int length = GetLength();
    const int first = std::clamp(iFirst, 0, length);
    const int count = std::clamp(nCount, 0, length - first);
    if (iFirst <= 0 && count == length) return *this;
    return CStringT(GetString() + first, count, GetData()->pBufferMgr->Clone());
}

}  // namespace LGN
