// OpenSSL's memory: counted, and lacking where a test wants it to.
#ifndef KESTA_SOFTKEY_OPENSSL_MEMORY_H
#define KESTA_SOFTKEY_OPENSSL_MEMORY_H

#include <cstddef>

struct OpensslMemory {
    long blocks = 0;          // that live, counted from the first one on
    long failing = 0;         // the allocation that finds no memory, counted down
    bool all = false;         // whether those after it find none either
    std::size_t missing = 0;  // the size of which no block is to be had
    bool counted = false;
};
extern OpensslMemory g_memory;

#endif
