#!/usr/bin/env bash
# A parameter that nobody has classed does not compile, and neither does a function that was forgotten:
# whoever adds one decides who may see it. CXX is the compiler.
# shellcheck source=tests/support/claims.bash
. "$(dirname "$(readlink -f "$0")")/../support/claims.bash"

source_tree=${KESTA_SOURCE:?names the source tree}

# The rows, as they are or changed, held against the functions' types.
compiled() {
    "${CXX:?names the compiler}" -std=c++17 -fsyntax-only -I"$scratch" -I"$source_tree/include" \
        boundary/table.cpp 2>said
}

# change ROW FROM TO: in the line that the row begins in, or the next.
change() {
    sed -i "/{\"$1\",/{N;s/$2/$3/}" boundary/rows.h
    ! cmp -s boundary/rows.h "$source_tree/recorder/boundary/rows.h" || fail "no row is changed: $1"
}

refused() {
    grep -qF "the row of the $1 is missing or lacks a parameter, a class or a fit" said ||
        fail "not refused: $1" "$(<said)"
}

set_up() { cp -r "$source_tree/recorder/boundary" .; }

test_rows_compile_as_they_are() { compiled || fail "$(<said)"; }

test_a_parameter_without_a_class_does_not_compile() {
    change Sign 'Text("pszData", Content)' 'Text("pszData", Class::kNone)'
    change GetLastErrCode 'NumberOut("pErrCode")' '{"pErrCode"}'
    change SetCachePinFlag 'Number("nFlag")' ''
    change ValtoT_ContextInit 'As("context", Public, Shape::kNumberInOut)' \
        'As("context", Class::kNone, Shape::kNumberInOut)'
    if compiled; then fail "it compiles"; fi
    refused 'export Sign'
    refused 'export GetLastErrCode'
    refused 'export SetCachePinFlag'
    refused 'entry point ValtoT_ContextInit'
    expect_equal "refused" 4 "$(grep -cE 'error: static.*the row' said)"
}

test_a_function_without_a_row_does_not_compile() {
    sed -i '/{"RemovePinCache", {}},/d' boundary/rows.h
    if compiled; then fail "it compiles"; fi
    refused 'export RemovePinCache'
}

run_claims "$@"
