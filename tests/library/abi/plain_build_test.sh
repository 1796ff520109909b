#!/usr/bin/env bash
# The library is built by hand on a machine that has little more than a compiler. KESTA_SOURCE is the
# source tree.
# shellcheck source=tests/support/claims.bash
. "$(dirname "$(readlink -f "$0")")/../../support/claims.bash"

source_tree=${KESTA_SOURCE:?names the source tree}

# A folder of programs: cmake, the compiler with what it calls, coreutils, and those named.
offer_programs() {
    local program
    need cmake g++ dpkg "$@"
    mkdir programs
    for program in cmake gcc g++ cc c++ as ld ar ranlib "$@"; do
        ln -s "$(command -v "$program")" "programs/$program"
    done
    while read -r program; do
        ln -sf "$program" programs/
    done < <(dpkg -L coreutils | grep -E '^(/usr)?/bin/.')
}

# clean_copy TAR-OPTION...: of the source tree, in copy.
clean_copy() {
    mkdir copy
    tar -C "$source_tree" --exclude=./.git --exclude='./build*' --exclude='./demo-*' "$@" -cf - . |
        tar -C copy -xf -
}

# builds_by_hand GENERATOR-OPTION...: in a clean copy, with those programs alone.
builds_by_hand() {
    local folder=$PWD
    clean_copy
    cd copy
    env -i PATH="$folder/programs" HOME="$folder" cmake -S . -B build "$@"
    env -i PATH="$folder/programs" HOME="$folder" \
        cmake --build build --target kesta_unified_zrkukey --parallel 2
    [[ -n $(find build -name libkesta_unified_zrkukey.so -type f) ]] ||
        fail "there is no libkesta_unified_zrkukey.so below build"
    # A dependency that was looked for has left its mark, found or not.
    if grep -vE '^(//|KESTA_)' build/CMakeCache.txt |
        grep -iE 'gtest|gmock|openssl|sqlite|cli11|nlohmann|benchmark|pkg_?config'; then
        fail "something was looked for that the library does not need"
    fi
}

test_library_builds_with_cmake_a_compiler_and_make() {
    offer_programs make
    builds_by_hand
}

test_library_builds_with_cmake_a_compiler_and_ninja() {
    offer_programs ninja
    builds_by_hand -G Ninja
}

test_part_that_is_asked_for_and_missing_is_an_error() {
    need cmake
    clean_copy --exclude=./examples
    cmake -S copy -B whole >out 2>&1 || fail "the library alone is not configured" "$(<out)"
    if cmake -S copy -B asked -DKESTA_BUILD_EXAMPLES=ON >out 2>&1; then
        fail "a part whose folder is missing is passed over"
    fi
    expect_matches "reason" 'KESTA_BUILD_EXAMPLES is ON and examples/ is missing' "$(<out)"
}

run_claims "$@"
