// The string that the library works with.
#ifndef LGN_STRING_T_H
#define LGN_STRING_T_H

#include <string_view>

#include "lgn/simple_string.h"

namespace LGN {

// The traits are part of the string's type, whose name appears in an exported symbol; the one
// instantiation needs nothing from them.
template <typename T>
class ChTraitsEx {};
template <typename T, class Traits>
class StrTraitLGN {};

template <typename T, class StringTraits>
class CStringT;

template <>
class CStringT<char, StrTraitLGN<char, ChTraitsEx<char> > > : public CSimpleStringT<char> {
public:
    CStringT() : CSimpleStringT<char>(_lgnBufferManager) {}
    explicit CStringT(const char* psz) : CStringT() { SetString(psz); }
    CStringT(const char* pch, int nLength, ILgnBufferMgr* mgr)
        : CSimpleStringT<char>(pch, nLength, mgr) {}

    // Replaces every occurrence of pszOld, left to right, and returns their number. A text with
    // embedded NULs is searched from NUL to NUL. Where a longer replacement pushes such a piece
    // past the text's old end, the piece stays as it is; the length counts it as replaced all the
    // same, and zero bytes make up the difference.
    int Replace(const char* pszOld, const char* pszNew);

    // The nCount characters at iFirst; negative values count as 0, and the end cuts the count.
    CStringT Mid(int iFirst, int nCount) const;

    std::string_view View() const {
        return std::string_view(GetString(), static_cast<std::size_t>(GetLength()));
    }
};

}  // namespace LGN

using LgnString = LGN::CStringT<char, LGN::StrTraitLGN<char, LGN::ChTraitsEx<char> > >;

static_assert(sizeof(LgnString) == sizeof(KestaStringObject), "peers see one pointer");

#endif
