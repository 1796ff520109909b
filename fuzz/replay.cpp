// Runs a fuzz target over files: seeds, or inputs that failed once. For compilers without a fuzzer.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "fuzz_target.h"

int main(int count, char** arguments) {
    int files = 0;
    for (int i = 1; i < count; ++i) {
        for (const auto& entry : std::filesystem::directory_iterator(arguments[i])) {
            std::ifstream in(entry.path(), std::ios::binary);
            const std::string bytes((std::istreambuf_iterator<char>(in)), {});
            std::printf("%s\n", entry.path().c_str());
            std::fflush(stdout);
            LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()),
                                   bytes.size());
            ++files;
        }
    }
    if (files == 0) {
        std::fputs("usage: replay FOLDER...   (no file was found)\n", stderr);
        return 2;
    }
    return 0;
}
