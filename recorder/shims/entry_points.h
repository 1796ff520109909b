// The stand-in for one of the maker's two libraries, from its list of entry points.
#ifndef KESTA_RECORDER_ENTRY_POINTS_H
#define KESTA_RECORDER_ENTRY_POINTS_H

#include "shim.h"

namespace kesta {
namespace recorder {

int* LastErrorOf(std::size_t) {
    return nullptr;
}

}  // namespace recorder
}  // namespace kesta

using namespace kesta::recorder;

#define KESTA_DEFINE_ENTRY(result, name, arguments)                         \
    extern "C" KESTA_ENTRY_SPACE::name* kesta_find_##name() {               \
        return &KESTA_ENTRY_STAND(name)::call;                              \
    }                                                                       \
    extern "C" __attribute__((visibility("default"))) result name arguments \
        __attribute__((ifunc("kesta_find_" #name)));

#define KESTA_BIND_ENTRY(result, name, arguments) \
    library.Find(#name, KESTA_ENTRY_STAND(name)::real);

#endif
