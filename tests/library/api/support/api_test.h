// What every test of the exports uses.
#ifndef KESTA_API_API_TEST_H
#define KESTA_API_API_TEST_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "canary_buffer.h"
#include "heap_control.h"
#include "install_directory.h"
#include "kesta/token_library.h"
#include "kesta_unified_zrkukey.h"
#include "log_file.h"
#include "recording.h"

using recording::BytesOf;
using recording::TheRecorder;

// The trace of calls and the lines of the log are compared as wholes.
inline Lines Trace() {
    return TheRecorder().Trace();
}

// A value that no export produces, to see whether an export stores its result.
constexpr int unrelated_code = 0x7E57;

// What one binding looks up.
constexpr std::size_t entry_points = kesta::token::kEntryPoints;

#endif
