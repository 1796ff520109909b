#!/usr/bin/env bash
# The public header, by itself. KESTA_SOURCE is the source tree; CC and CXX the compilers.
# shellcheck source=tests/support/claims.bash
. "$(dirname "$(readlink -f "$0")")/../../support/claims.bash"

source_tree=${KESTA_SOURCE:?names the source tree}
header=$source_tree/include/kesta_unified_zrkukey.h
strict=(-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror -fsyntax-only)

# compiles COMPILER LANGUAGE STANDARD: the header twice and nothing else.
compiles() {
    need "$1"
    printf '#include "kesta_unified_zrkukey.h"\n%.0s' 1 2 >alone
    "$1" -x "$2" -std="$3" "${strict[@]}" -I"$source_tree/include" alone ||
        fail "the header does not compile as $3"
}

test_header_compiles_alone_as_C11() {
    compiles "${CC:-cc}" c c11
    # In C a declaration without parameters would accept any.
    "${CC:-cc}" -x c -std=c11 -Wstrict-prototypes "${strict[@]}" -I"$source_tree/include" alone
}

test_header_compiles_alone_as_Cxx_of_every_standard() {
    local standard
    for standard in c++11 c++14 c++17 c++20; do
        compiles "${CXX:-c++}" c++ "$standard"
    done
}

# The comment that ends right above each declaration, as "NAME<tab>COMMENT" on one line.
blocks() {
    awk '/^\/\*/ {block = ""}
         /^(\/\*| \*)/ {block = block " " $0; next}
         /^KESTA_API / {
             match($0, /[A-Za-z_0-9]+\(/)
             print substr($0, RSTART, RLENGTH - 1) "\t" block
         }
         !/^ / {block = ""}' "$header"
}

test_every_function_has_a_block_that_names_it_and_says_whether_it_blocks_and_logs() {
    local name block
    blocks >all
    while IFS=$'\t' read -r name block; do
        expect_matches "the block of $name begins with its name" "^ /\* +\* $name: " "$block"
        expect_matches "the block of $name" "Blocking: " "$block"
        expect_matches "the block of $name" "Log: " "$block"
    done <all
    # Counted by the other list of the functions.
    expect_equal "number of blocks" \
        "$(sed '/# functions/,/# variables/!d' "$source_tree/src/exports.map" | grep -c ';')" \
        "$(wc -l <all)"
}

test_every_function_with_a_result_lists_its_codes() {
    local name block result silent=
    while IFS=$'\t' read -r name block; do
        result=$(sed -nE "s/^KESTA_API ([a-z]+) $name\(.*/\1/p" "$header")
        if [[ $result != int ]]; then
            silent+=" $name"
            continue
        fi
        expect_matches "the block of $name" "Codes: -?[0-9]" "$block"
    done < <(blocks)
    expect_equal "functions without a result" " Finalize GetLastErrCode" "$silent"
}

run_claims "$@"
