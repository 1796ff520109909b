#!/usr/bin/env bash
# Recording and replaying a client for another processor, in the user emulator. The emulator is a
# program of this machine, whose loader says that the other processor's audit module is not for it.
# shellcheck source=tests/support/claims.bash
. "$(dirname "$(readlink -f "$0")")/../support/claims.bash"

build=${KESTA_BUILD:?names the build folder}
in_namespace=${KESTA_SOURCE:?names the source tree}/tests/support/in-namespace
IFS=';' read -ra emulator <<<"${KESTA_EMULATOR:?names the emulator}"
export KESTA_SOFTKEY_PIN=135790 LC_ALL=C.UTF-8

test_a_recording_replays_without_a_key() {
    local ukey=("${emulator[@]}" "$build/bin/ukey")
    export KESTA_SOFTKEY_HOME=$scratch/key
    "${emulator[@]}" "$build/bin/softkey" create --serial EMU00001 >/dev/null
    "$in_namespace" "$build/softkey/bin" "$build" "${ukey[@]}" record --full -o "$scratch/case.rec" -- \
        "${ukey[@]}" info >recorded 2>said || fail "$(<said)"
    grep -q EMU00001 recorded || fail "no key was seen" "$(<said)"
    "${ukey[@]}" trace show --json case.rec >shown
    grep -q '"machine":"aarch64"' shown || fail "$(head -n 3 shown)"
    grep -q '"function":"GetLabel"' shown || fail "no call was recorded" "$(<said)"
    mkdir nothing
    echo 'no library' >nothing/README
    "$in_namespace" "$scratch/nothing" "$build" "${ukey[@]}" replay "$scratch/case.rec" -- \
        "${ukey[@]}" info >replayed 2>said || fail "$(<said)"
    expect_same_lines "the output differs" recorded replayed
}

run_claims "$@"
