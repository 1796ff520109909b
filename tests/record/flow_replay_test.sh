#!/usr/bin/env bash
# Every flow test, recorded in full against the software key, replays where no key is, and passes.
# The working folder lies below the build folder, which the namespaces show. What the authority makes
# at random, and what `softkey` says, is noted while recording.
# shellcheck source=tests/support/claims.bash
. "$(dirname "$(readlink -f "$0")")/../support/claims.bash"

build=${KESTA_BUILD:?names the build folder}
in_namespace=${KESTA_SOURCE:?names the source tree}/tests/support/in-namespace

tests_of() {
    "$in_namespace" "$build/softkey/bin" "$build" "$1" --gtest_list_tests |
        awk '/^[^ ]/ { suite = $1 } /^ / { print suite $1 }'
}

# replays PROGRAM TEST
replays() {
    local run=$scratch/${2//\//.}  # the names of tests with parameters hold slashes
    mkdir -p "$run/notes"
    env KESTA_FLOW_NOTES="$run/notes" \
        "$in_namespace" "$build/softkey/bin" "$build" \
        "$build/bin/ukey" record --full -o "$run/case.rec" -- "$1" --gtest_filter="$2" \
        >"$run/recorded" 2>&1 || fail "$2 fails while it is recorded" "$(tail -n 20 "$run/recorded")"
    env KESTA_FLOW_NOTES="$run/notes" \
        "$in_namespace" "$scratch/nothing" "$build" \
        "$build/bin/ukey" replay "$run/case.rec" -- "$1" --gtest_filter="$2" \
        >"$run/replayed" 2>&1 || fail "$2 does not replay" "$(tail -n 20 "$run/replayed")"
    grep -q '\[  PASSED  \] 1 test' "$run/replayed" || fail "$2 did not run"
}

replay_all() {
    local name count=0
    mkdir nothing
    echo 'no library' >nothing/README
    while read -r name; do
        replays "$1" "$name"
        count=$((count + 1))
    done < <(tests_of "$1")
    ((count > $2)) || fail "only $count tests of $1 ran"
}

test_flow_tests_replay_without_a_key() { replay_all "$build/bin/flow_tests" 30; }

test_flow_tests_of_events_replay_without_a_key() { replay_all "$build/bin/flow_event_tests" 4; }

run_claims "$@"
