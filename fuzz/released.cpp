// Tells the recording libraries what is released, as the tests' own operator delete[] does
// elsewhere: here the sanitizer's must stay.
#include <sanitizer/allocator_interface.h>

#include "recording.h"

static const int installed [[maybe_unused]] = __sanitizer_install_malloc_and_free_hooks(
    [](const volatile void*, std::size_t) {},
    [](const volatile void* block) { recording::Released(const_cast<const void*>(block)); });
