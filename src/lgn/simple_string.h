// A buffer that takes NUL-terminated texts.
#ifndef LGN_SIMPLE_STRING_H
#define LGN_SIMPLE_STRING_H

#include "lgn/simple_buffer.h"

namespace LGN {

// The length of a text as a string counts it. Throws where it does not fit; null has length 0.
int TextLength(const char* psz);

template <typename T>
class CSimpleStringT;

template <>
class CSimpleStringT<char> : public CSimpleBufferT<char> {
public:
    using CSimpleBufferT<char>::CSimpleBufferT;
    using CSimpleBufferT<char>::SetString;

    // The source may lie inside this very string. Null and the empty text empty the string.
    void SetString(const char* psz) { CSimpleBufferT<char>::SetString(psz, TextLength(psz)); }
};

}  // namespace LGN

#endif
