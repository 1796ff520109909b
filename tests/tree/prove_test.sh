#!/usr/bin/env bash
# What ./prove makes of parts that go well, badly, or are not there. KESTA_SOURCE is the source tree.
# shellcheck source=tests/support/claims.bash
. "$(dirname "$(readlink -f "$0")")/../support/claims.bash"

set_up() {
    mkdir -p tree/tools tree/tests/proof
    cp "${KESTA_SOURCE:?names the source tree}/prove" tree/
    printf '#!/bin/sh\necho "installing $*" >>../installed\n' >tree/tools/install-packages
    chmod +x tree/tools/install-packages
}

# part NAME LINE...: a part that does this.
part() {
    printf '%s\n' '#!/bin/bash' "${@:2}" >"tree/tests/proof/$1"
    chmod +x "tree/tests/proof/$1"
}

# proves STATUS [ARGUMENT...]: what it says is left in the file said.
proves() {
    local status=0
    (cd / && "$OLDPWD/tree/prove" "${@:2}") >said 2>&1 || status=$?
    expect_equal "exit status" "$1" "$status"
}

test_good_part_passes_and_its_figure_comes_last() {
    part kills 'echo begun' 'echo "kills: 1000 of 1000 left the state whole"'
    proves 0 kills
    expect_equal "last line" "kills: 1000 of 1000 left the state whole" "$(tail -n 1 said)"
    grep -q begun tree/build/prove/kills.log || fail "the log is not kept"
    expect_equal "packages" "installing build demo check prove" "$(<installed)"
}

test_part_that_is_not_there_fails() {
    proves 1 races
    expect_equal "last line" "races: 0 of 0; tests/proof/races is not there; FAILED" \
        "$(tail -n 1 said)"
}

test_failing_part_fails_with_its_figure() {
    part fuzz 'echo "fuzz: 3 of 12 harnesses without a finding"' 'exit 1'
    proves 1 fuzz
    expect_equal "last line" "fuzz: 3 of 12 harnesses without a finding; FAILED" "$(tail -n 1 said)"
}

test_part_without_a_figure_fails() {
    part calls 'echo all is well'
    proves 1 calls
    expect_matches "last line" '^calls: 0 of 0; it ended without a figure: all is well; FAILED$' \
        "$(tail -n 1 said)"
    part calls ':'
    proves 1 calls
    part calls 'echo "vectors: 3 of 3"'
    proves 1 calls
}

test_without_a_name_all_eight_run_and_each_has_its_figure() {
    local name
    for name in coverage faults fuzz mutants races kills vectors; do
        part "$name" "echo '$name: 1 of 1'"
    done
    proves 1
    expect_equal "figures" "coverage faults fuzz mutants races kills vectors calls" \
        "$(sed -n '/^== figures/,$s/^\([a-z]*\):.*/\1/p' said | xargs)"
    expect_equal "failed" 1 "$(sed -n '/^== figures/,$p' said | grep -c FAILED)"
}

test_quick_and_seed_reach_the_part() {
    part mutants 'echo "mutants: $KESTA_SEED of 9 with $*"'
    proves 0 --quick --seed 7 mutants
    expect_equal "last line" "mutants: 7 of 9 with --quick" "$(tail -n 1 said)"
    proves 0 mutants
    expect_equal "last line" "mutants: 1 of 9 with " "$(tail -n 1 said)"
}

test_unknown_part_and_bad_seed_are_refused() {
    proves 2 nonsense
    grep -q 'no part is called nonsense' said || fail "$(<said)"
    proves 2 --seed x mutants
}

run_claims "$@"
