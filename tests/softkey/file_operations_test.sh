#!/usr/bin/env bash
# How often a client touches the state's files: each look is one that every signature pays for.
# KESTA_BUILD is the build folder, KESTA_SOURCE the source tree.
# shellcheck source=tests/support/claims.bash
. "$(dirname "$(readlink -f "$0")")/../support/claims.bash"

test_a_fresh_process_verifies_and_signs_with_at_most_60_file_operations_on_the_state() {
    need strace bwrap
    "${KESTA_SOURCE:?}/bench/fresh_process" "${KESTA_BUILD:?}" >counts
    local count
    count=$(awk '$1 == "state" { print $2 }' counts)
    # Two changes, of one try taken and given back, cost 13 each.
    ((count >= 26)) || fail "the count cannot be right" "$(<counts)"
    ((count <= 60)) || fail "$count operations on the state" "$(<counts)"
}

run_claims "$@"
