// Says what reaches a client of what is thrown below it and in the library itself.
#include <kesta_unified_zrkukey.h>

#include <cstdlib>
#include <iostream>
#include <new>
#include <stdexcept>

namespace {
bool memory_runs_out = false;
}

// The library's own allocations come here too, as those of every file with the shared runtime.
void* operator new(std::size_t size) {
    void* const memory = memory_runs_out ? nullptr : std::malloc(size);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

int main() {
    try {
        VerifyPIN("A1");
    } catch (const std::runtime_error& error) {
        std::cout << "token library: std::runtime_error " << error.what() << '\n';
    }

    unsigned int kind = 0, length = 0;
    int requestLength = 0;
    char mediaId[32] = "";
    std::cout << "event library: " << WaitForKeyEvent(&kind, mediaId, &length) << '\n';

    try {
        GenerateCertRequest("A1", "CertType", nullptr, &requestLength);
    } catch (...) {
        std::cout << "library: an exception of its own\n";
    }

    const char longSerial[] = "a serial number that does not fit into a small string's own room";
    memory_runs_out = true;
    try {
        CheckDriverIntegrity(1);
        memory_runs_out = false;
        std::cout << "nothing for " << longSerial << '\n';
    } catch (const std::bad_alloc&) {
        memory_runs_out = false;
        std::cout << "library: std::bad_alloc\n";
    }
    return 0;
}
