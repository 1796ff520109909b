// Shared libraries read without being loaded, damaged ones above all.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "doctor/elf_file.h"
#include "names.h"

namespace ukey {
namespace {

// The C library of this process: a large one with everything in it.
std::string CLibrary() {
    for (const char* const path :
         {"/lib/x86_64-linux-gnu/libc.so.6", "/lib/aarch64-linux-gnu/libc.so.6",
          "/usr/lib/libc.so.6", "/lib64/libc.so.6"}) {
        try {
            return ReadInput(path);
        } catch (const FileError&) {
        }
    }
    throw std::runtime_error("no C library was found");
}

TEST(ElfFile, tells_what_a_library_offers_and_needs) {
    const ElfFile file = ParseElf(CLibrary());
    EXPECT_EQ(file.fault, "");
    EXPECT_TRUE(file.sixtyFourBit);
    EXPECT_EQ(file.machine, OwnMachine());
    EXPECT_EQ(file.symbols.count("printf"), 1U);
    EXPECT_EQ(file.symbols.count("no_such_function"), 0U);
    EXPECT_EQ(file.versions.count("GLIBC_2.17"), 1U);
    EXPECT_FALSE(file.needed.empty());
}

TEST(ElfFile, that_is_cut_short_has_a_fault) {
    const std::string whole = CLibrary();
    const ElfFile file = ParseElf(whole.substr(0, 5000));
    EXPECT_FALSE(file.fault.empty());
}

TEST(ElfFile, of_any_length_is_survived) {
    const std::string whole = CLibrary();
    for (std::size_t length = 0; length < 4096; length += 7) {
        static_cast<void>(ParseElf(whole.substr(0, length)));
    }
    for (std::size_t length = 4096; length < whole.size(); length += 40001) {
        static_cast<void>(ParseElf(whole.substr(0, length)));
    }
}

TEST(ElfFile, with_damaged_heads_is_survived) {
    const std::string whole = CLibrary();
    unsigned seed = 1;
    for (int round = 0; round < 300; ++round) {
        std::string damaged = whole;
        for (int i = 0; i < 8; ++i) {
            seed = seed * 1103515245U + 12345U;
            damaged[(seed >> 8U) % 1000] = static_cast<char>(seed >> 24U);
        }
        static_cast<void>(ParseElf(damaged));
    }
}

TEST(ElfFile, that_is_a_text_is_none) {
    EXPECT_EQ(ParseElf("hello").fault, "is no shared library");
    EXPECT_EQ(ParseElf("").fault, "is empty");
}

}  // namespace
}  // namespace ukey
