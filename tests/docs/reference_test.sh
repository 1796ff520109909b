#!/usr/bin/env bash
# The reference made from the public header: every function has its block, pages and HTML come out
# without a warning, and the checks are seen to notice what they are there for. KESTA_SOURCE is the
# source tree.
# shellcheck source=tests/support/claims.bash
. "$(dirname "$(readlink -f "$0")")/../support/claims.bash"

reference=${KESTA_SOURCE:?names the source tree}/docs/reference
header=$KESTA_SOURCE/include/kesta_unified_zrkukey.h

blocks() { awk -f "$reference/blocks.awk" "$1" >blocks 2>errors; }

# A copy of the header without the lines that match.
header_without() { grep -vE "$1" "$header" >kesta_unified_zrkukey.h; }

test_every_function_has_its_block() {
    blocks "$header" || fail "$(cat errors)"
    local declared documented
    declared=$(grep -cE '^KESTA_API [a-z]' "$header")
    documented=$(grep -c '^FUNCTION' blocks)
    [[ $declared == "$documented" ]] ||
        fail "$declared functions are declared, $documented have a block"
}

test_a_missing_block_is_noticed() {
    header_without '^ \* SignHash: '
    if blocks kesta_unified_zrkukey.h; then fail "a function without block passed"; fi
    grep -q 'SignHash' errors || fail "the message does not name the function"
}

test_a_missing_line_is_noticed() {
    header_without '^ \* Codes: 0; -300 for another language'
    if blocks kesta_unified_zrkukey.h; then fail "a block without codes passed"; fi
    grep -q 'GetVendorInfo does not state its codes' errors || fail "$(cat errors)"
}

make_pages() { "$reference/make-man-pages" "$header" . 1.0; }

test_man_pages_have_no_warnings() {
    make_pages
    need man
    local page
    for page in man?/*; do
        LC_ALL=C.UTF-8 man --warnings=w -E UTF-8 -l "$page" >page 2>>warnings
        [[ $(wc -l <page) -gt 10 ]] || fail "$page is empty"
    done
    [[ ! -s warnings ]] || fail "$(cat warnings)"
}

test_every_function_has_a_man_page() {
    make_pages
    local name
    for name in $(sed -n 's/^KESTA_API [a-z]* \([A-Za-z0-9_]*\)(.*/\1/p' "$header"); do
        grep -q "^\.SH NAME" "man3/$name.3" || fail "$name has no man page"
    done
    [[ $(find "man3" -name '*.3' | wc -l) == $(grep -cE '^KESTA_API [a-z].*\(' "$header") ]] ||
        fail "there are other pages"
}

test_html_has_no_warnings() {
    "$reference/make-reference" "$header" . >output 2>&1 || fail "$(cat output)"
    local page=html/kesta__unified__zrkukey_8h.html
    grep -q 'WaitForKeyEvent' "$page" || fail "$page does not describe WaitForKeyEvent"
}

test_an_undocumented_parameter_is_noticed() {
    header_without '^ \*   pszWarningMsg '
    if "$reference/make-reference" kesta_unified_zrkukey.h . >output 2>&1; then
        fail "a parameter without a word passed"
    fi
    grep -q 'pszWarningMsg' output || fail "$(cat output)"
}

run_claims "$@"
