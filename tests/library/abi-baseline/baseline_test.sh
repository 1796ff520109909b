#!/usr/bin/env bash
# The binary interface of the library, compared with the recorded one of its processor. KESTA_LIBRARY
# is the file, KESTA_BUILD the build folder it is of, KESTA_SOURCE the source tree.
# shellcheck source=tests/support/claims.bash
. "$(dirname "$(readlink -f "$0")")/../../support/claims.bash"

library=${KESTA_LIBRARY:?names the shared library}
source_tree=${KESTA_SOURCE:?names the source tree}
build=${KESTA_BUILD:?names the build folder}
here=$source_tree/tests/library/abi-baseline
baseline=$here/${KESTA_PROCESSOR:?names the processor}.xml

# compare LIBRARY: what clients use must be there unchanged; something new may be.
compare() {
    need abidw abidiff
    [[ -s $baseline ]] || fail "there is no baseline $baseline; tests/library/abi-baseline/record makes it"
    "$here/record" "$1" now.xml
    abidiff --no-added-syms "$baseline" now.xml >differences
}

# make_variant VERSION-SCRIPT SOURCE: the library with another version script or exports.
make_variant() {
    local objects
    # All of the library's objects but the one that defines the exports, whatever it is called.
    mapfile -t objects < <(find "$build/src/CMakeFiles/kesta_objects.dir" -name '*.o' \
        -exec sh -c '! nm "$1" | grep -q " T Initialize$"' _ {} \; -print)
    "$CXX" -std=c++17 -g -O1 -fPIC -fvisibility=hidden -Iinclude -I"$source_tree/src" -c "$2" \
        -o exports.o
    "$CXX" -shared -Wl,--version-script="$1" \
        -Wl,-soname,libkesta_unified_zrkukey.so -o variant.so exports.o "${objects[@]}" \
        -L"$build/import" -lR7Token_KESTA
}

# expect_refused TEXT: the variant does not pass for the library, and the report says what is wrong.
expect_refused() {
    if compare variant.so; then
        fail "the change passes for compatible"
    fi
    expect_matches report "$1" "$(<differences)"
}

copy_sources() {
    cp -r "$source_tree/include" include
    cp "$source_tree/src/exports.map" "$source_tree/src/kesta_unified_zrkukey.cpp" .
}

test_interface_is_the_recorded_one() {
    compare "$library" || fail "the interface has changed" "$(<differences)"
}

test_unchanged_variant_passes() {
    copy_sources
    make_variant exports.map kesta_unified_zrkukey.cpp
    compare variant.so || fail "the variants of the next tests differ by themselves" "$(<differences)"
}

test_removed_function_is_refused() {
    copy_sources
    sed -i '/^ *Sign;/d' exports.map
    make_variant exports.map kesta_unified_zrkukey.cpp
    expect_refused "1 Removed.*'function int Sign\("
}

test_changed_parameter_is_refused() {
    copy_sources
    sed -i 's/int SetCachePinFlag(const char\* szSN, int /int SetCachePinFlag(const char* szSN, long /' \
        include/kesta_unified_zrkukey.h kesta_unified_zrkukey.cpp
    make_variant exports.map kesta_unified_zrkukey.cpp
    expect_refused "parameter 2 of type 'int' changed"
}

run_claims "$@"
