# Sourced by test scripts. A test is a function test_CLAIM; it fails when a command in it fails that
# is not asked about, or through fail. Each runs in an empty folder of its own, $scratch, which is
# removed afterwards; set_up, where there is such a function, runs first.
# shellcheck shell=bash

set -euo pipefail

fail() {
    printf 'FAILED: %s\n' "$@" >&2
    exit 1
}

# A missing tool fails the test that needs it.
need() {
    local tool
    for tool in "$@"; do
        command -v "$tool" >/dev/null || fail "the program $tool is missing"
    done
}

# expect_equal WHAT EXPECTED ACTUAL
expect_equal() {
    [[ $2 == "$3" ]] || fail "$1" "expected: $2" "found:    $3"
}

# expect_matches WHAT EXTENDED-REGEX ACTUAL
expect_matches() {
    [[ $3 =~ $2 ]] || fail "$1" "expected to match: $2" "found: $3"
}

# expect_same_lines WHAT FILE FILE: differences are shown with what each file is.
expect_same_lines() {
    diff --label "$2" --label "$3" -U0 "$2" "$3" >&2 || fail "$1"
}

# run_claims CLAIM...: runs the tests named, or all. Each is a process of its own: bash disregards
# `set -e` in everything that is called inside a condition, so no condition may be around a test.
run_claims() {
    local claims=("$@") claim status=0
    if [[ -n ${KESTA_CLAIM:-} ]]; then
        scratch=$(mktemp -d)
        trap 'rm -rf "$scratch"' EXIT
        cd "$scratch"
        if declare -F set_up >/dev/null; then set_up; fi
        "test_$KESTA_CLAIM"
        exit 0
    fi
    if (($# == 0)); then
        mapfile -t claims < <(compgen -A function | sed -n 's/^test_//p')
    fi
    for claim in "${claims[@]}"; do
        declare -F "test_$claim" >/dev/null || fail "no test is called $claim"
        if KESTA_CLAIM=$claim "$claims_script"; then
            echo "ok      $claim"
        else
            echo "FAILED  $claim"
            status=1
        fi
    done
    exit "$status"
}

claims_script=$(readlink -f "$0")
