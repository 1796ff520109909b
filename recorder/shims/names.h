// The files of the recorder, and the names under which stand-ins need the libraries that they stand
// for. The audit module leads each of these names to the file that it is about.
#ifndef KESTA_RECORDER_NAMES_H
#define KESTA_RECORDER_NAMES_H

#include "kesta/places.h"

#define KESTA_UNIFIED_LIBRARY "libkesta_unified_zrkukey.so"

namespace kesta {
namespace recorder {

constexpr const char* kRealLibrary = "libkesta_unified_zrkukey.real";
constexpr const char* kRealTokenLibrary = "libKestaZRK.real";
constexpr const char* kRealEventLibrary = "libR7Token_KESTA.real";

}  // namespace recorder
}  // namespace kesta

#endif
