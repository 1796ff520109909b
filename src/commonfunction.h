// The bound token library, the utilities of the exports, and the diagnostic log.
#ifndef KESTA_COMMONFUNCTION_H
#define KESTA_COMMONFUNCTION_H

#include <cstdint>
#include <string>
#include <vector>

#include "kesta/token_library.h"
#include "kesta_unified_zrkukey.h"
#include "lgn/lgn.h"

// The table of the token library's entry points and the handle that they came from. The pointers
// of an earlier binding stay after a failed one: whether the table may be used is the handle's to
// say. Table and handle are accessed atomically, since two threads may bind at once; both then
// store the same values.
class CommonFunction {
public:
    constexpr CommonFunction() = default;
    // Does not unload the token library: other threads may be inside it when the process ends.
    ~CommonFunction() {}
    CommonFunction(const CommonFunction&) = delete;
    CommonFunction& operator=(const CommonFunction&) = delete;

    // Loads the token library and looks up every entry point. 0, or -101 with the handle null.
    KESTA_API int init();
    // Closes the library. Always 0.
    KESTA_API int FreeFunc();

    bool IsBound() const { return __atomic_load_n(&m_hLibrary, __ATOMIC_ACQUIRE) != nullptr; }

    // 0 after copying; 1: more than fits, 2: no source, 3: no destination.
    KESTA_API int memcpy_s(void* dst, unsigned long dstSize, const void* src, unsigned long count);
    // Occurrences of sub that do not overlap, left to right.
    KESTA_API unsigned GetSubStringCount(const std::string& text, const std::string& sub);
    // Converts (direction 0: UTF-8 to GB18030) or copies (1) into *ppOut, from new[], which the
    // caller releases with delete[]. No NUL. -1: another direction, with nothing written, or an
    // empty result, whose buffer is handed out all the same.
    KESTA_API int MB2MB(unsigned nDirection, const unsigned char* pIn, unsigned nInLen,
                        unsigned char** ppOut, unsigned* pnOutLen);
    // Appends every entry's name, "." and ".." included. -1 when there is no such directory.
    KESTA_API int find_dir_file(const char* path, std::vector<std::string>& names);
    // 1: malformed bundle, 2: one certificate, 3: bundle.
    KESTA_API int GetBatchCertDataType(LgnString text);

#define KESTA_TABLE_SLOT(result, name, arguments) kesta::token::name* m_p##name = nullptr;
    KESTA_TOKEN_ENTRY_POINTS(KESTA_TABLE_SLOT)
#undef KESTA_TABLE_SLOT
    void* m_hLibrary = nullptr;
};

// Appends one record to the diagnostic log; in silence nothing when it cannot be opened.
KESTA_API void LogEntry(const char* tag, const char* format, ...)
    __attribute__((format(printf, 2, 3)));
// The same, the body being the bytes in hexadecimal.
KESTA_API void LogHex(const char* tag, const void* data, int length);

#endif
