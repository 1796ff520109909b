// The exports with C++ linkage, declared as a peer would: by their symbols alone, without the
// library's own headers.
#ifndef KESTA_API_EXPORTS_CPP_H
#define KESTA_API_EXPORTS_CPP_H

#include <string>
#include <vector>

#include "kesta/device_record.h"
#include "kesta/token_library.h"

void LogEntry(const char* tag, const char* format, ...);
void LogHex(const char* tag, const void* data, int length);

void X_getCurrentSlots();
void X_getMediaId(std::string& mediaId, _S_DEV_CONFIG* record);

class CommonFunction {
public:
    int init();
    int FreeFunc();
    int memcpy_s(void* dst, unsigned long dstSize, const void* src, unsigned long count);
    unsigned GetSubStringCount(const std::string& text, const std::string& sub);
    int MB2MB(unsigned nDirection, const unsigned char* pIn, unsigned nInLen, unsigned char** ppOut,
              unsigned* pnOutLen);
    int find_dir_file(const char* path, std::vector<std::string>& names);

    void* entries[kesta::token::kEntryPoints] = {};  // in the order of the token library's contract
    void* handle = nullptr;
};

#endif
