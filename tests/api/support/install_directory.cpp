#include "install_directory.h"

#include <dlfcn.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace fs = std::filesystem;

namespace install {

namespace {

void put(const fs::path& library) {
    // A new file: one that is mapped must not change under the process.
    fs::remove(token_library);
    fs::copy_file(library, token_library);
}

void* handle_if_open() {
    return dlopen(token_library, RTLD_LAZY | RTLD_NOLOAD);
}

}  // namespace

void remove_token_library() {
    fs::remove(token_library);
}

void truncate_token_library(unsigned bytes) {
    put(fs::path(KESTA_TOKEN_IMAGE) / "libKestaZRK.so");
    fs::resize_file(token_library, bytes);
}

void put_text_file() {
    fs::remove(token_library);
    std::ofstream(token_library) << "This is not a library.\n";
}

void put_library_without(const std::string& entry) {
    put(fs::path(KESTA_TOKEN_VARIANTS) / ("without_" + entry) / "libKestaZRK.so");
}

void put_library_with_unresolved_function() {
    put(fs::path(KESTA_TOKEN_VARIANTS) / "unresolved" / "libKestaZRK.so");
}

void put_complete_library() {
    put(fs::path(KESTA_TOKEN_IMAGE) / "libKestaZRK.so");
}

int close_entirely() {
    int times = 0;
    while (void* const handle = handle_if_open()) {
        dlclose(handle);  // what asking added
        dlclose(handle);  // one of those that were there
        ++times;
    }
    return times;
}

bool is_open() {
    void* const handle = handle_if_open();
    if (handle) dlclose(handle);
    return handle != nullptr;
}

}  // namespace install
