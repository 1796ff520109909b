// What the library imports from the runtime and the kernel, and how each of these calls fails.
#ifndef TESTS_LIBRARY_API_FAULTS_RUNTIME_CALLS_H
#define TESTS_LIBRARY_API_FAULTS_RUNTIME_CALLS_H

#include <map>
#include <string>

// What becomes of an export when this call fails.
enum class Then {
    kCannot,   // it does not fail: it asks no one, or has no way to say so
    kSame,     // the export answers as ever
    kUnbound,  // the token library counts as missing, or as before
    kRefused,  // the export has a code for it
    kMemory,   // an exception tells that memory ran out
};

// Every symbol that the library imports from the runtime. One that is not here is a fault of this
// table: whoever makes the library call it says here how it fails.
inline const std::map<std::string, Then> kSymbols = {
    {"dlopen", Then::kUnbound},
    {"dlsym", Then::kUnbound},
    {"pread", Then::kUnbound},
    {"dladdr", Then::kSame},
    {"dlclose", Then::kSame},
    {"stat", Then::kSame},
    {"fstat", Then::kSame},
    {"open", Then::kSame},
    {"write", Then::kSame},
    {"close", Then::kSame},
    {"remove", Then::kSame},
    {"sysconf", Then::kUnbound},
    {"gettimeofday", Then::kSame},
    {"localtime_r", Then::kSame},
    {"__vsnprintf_chk", Then::kSame},
    {"nanosleep", Then::kSame},
    {"readdir", Then::kSame},
    {"closedir", Then::kSame},
    {"opendir", Then::kRefused},
    {"iconv_open", Then::kRefused},
    {"iconv", Then::kRefused},
    {"iconv_close", Then::kSame},
    {"malloc", Then::kMemory},
    {"realloc", Then::kMemory},
    {"_Znwm", Then::kMemory},
    {"_Znam", Then::kMemory},
    {"_ZNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEE9_M_createERmm", Then::kMemory},
    {"_ZNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEE9_M_assignERKS4_", Then::kMemory},
    // Exceptions have room set aside; they are thrown where another failure is told.
    {"__cxa_allocate_exception", Then::kCannot},
    {"__cxa_throw", Then::kCannot},
    {"__cxa_rethrow", Then::kCannot},
    {"__cxa_begin_catch", Then::kCannot},
    {"__cxa_end_catch", Then::kCannot},
    {"_Unwind_Resume", Then::kCannot},
    {"_ZSt20__throw_length_errorPKc", Then::kCannot},
    {"_ZSt24__throw_out_of_range_fmtPKcz", Then::kCannot},
    {"_ZSt17__throw_bad_allocv", Then::kCannot},
    // When the library is loaded, or leaves.
    {"__cxa_atexit", Then::kCannot},
    {"__cxa_finalize", Then::kCannot},
    {"abort", Then::kCannot},
    {"__stack_chk_fail", Then::kCannot},
    // Memory, texts, trees, the process: no failure.
    {"__errno_location", Then::kCannot},
    {"__explicit_bzero_chk", Then::kCannot},
    {"explicit_bzero", Then::kCannot},
    {"free", Then::kCannot},
    {"_ZdaPv", Then::kCannot},
    {"_ZdlPvm", Then::kCannot},
    {"_ZdlPv", Then::kCannot},
    {"getenv", Then::kCannot},
    {"getpid", Then::kCannot},
    {"isspace", Then::kCannot},
    {"toupper", Then::kCannot},
    {"memchr", Then::kCannot},
    {"memcmp", Then::kCannot},
    {"memcpy", Then::kCannot},
    {"memmem", Then::kCannot},
    {"memmove", Then::kCannot},
    {"memset", Then::kCannot},
    {"pthread_self", Then::kCannot},
    {"pthread_setcancelstate", Then::kCannot},
    {"strcmp", Then::kCannot},
    {"strlen", Then::kCannot},
    {"strnlen", Then::kCannot},
    {"tzset", Then::kCannot},
    {"_ZNKSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEE4findEPKcmm", Then::kCannot},
    {"_ZNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEE10_M_disposeEv", Then::kCannot},
    {"_ZSt18_Rb_tree_decrementPSt18_Rb_tree_node_base", Then::kCannot},
    {"_ZSt18_Rb_tree_incrementPSt18_Rb_tree_node_base", Then::kCannot},
    {"_ZSt29_Rb_tree_insert_and_rebalancebPSt18_Rb_tree_node_baseS0_RS_", Then::kCannot},
};

#endif
