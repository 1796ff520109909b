#!/usr/bin/env bash
# ukey-sandbox --fresh: a software key for one command.
# shellcheck source=tests/ukey/support.bash
. "$(dirname "$(readlink -f "$0")")/support.bash"

unset KESTA_SOFTKEY_PIN KESTA_SOFTKEY_HOME KESTA_SOFTKEY_BIN
launcher=$KESTA_BIN/ukey-sandbox
log_file=/tmp/ValtoPinpad_KESTA.log

fresh() { "$launcher" --softkey "${KESTA_KEY_BIN:?names the software key}" --log "$scratch/library.log" --fresh "$@"; }

test_command_gets_a_new_key_with_PIN_and_button() {
    # shellcheck disable=SC2016
    fresh -- sh -c 'ukey pin verify && ukey request -g sign:sm2:sm3 -o sign.request && softkey show &&
        echo "PIN $KESTA_SOFTKEY_PIN"' >said
    expect_matches "the key" 'serial +FRESH001' "$(<said)"
    expect_matches "its place" 'inserted' "$(<said)"
    expect_matches "its button" 'button +press' "$(<said)"
    expect_matches "its PIN" 'PIN 135790$' "$(<said)"
    [[ -s sign.request ]] || fail "what the command wrote is not there"
}

test_key_is_gone_afterwards_and_ones_own_untouched() {
    KESTA_SOFTKEY_PIN=135790 new_key
    KESTA_SOFTKEY_HOME=$scratch/key "$KESTA_BIN/softkey" show >before
    # shellcheck disable=SC2016
    KESTA_SOFTKEY_HOME=$scratch/key fresh -- sh -c 'echo "$KESTA_SOFTKEY_HOME"; ls "$KESTA_SOFTKEY_HOME"; softkey list' >inside
    KESTA_SOFTKEY_HOME=$scratch/key "$KESTA_BIN/softkey" show >after
    expect_same_lines "the own key" before after
    if grep CLI00001 inside; then fail "the own key is seen inside"; fi
    grep -qx softkey.db inside || fail "the new key has no state" "$(<inside)"
    [[ ! -e $(head -n 1 inside) ]] || fail "the state is still there: $(head -n 1 inside)"
}

test_killed_command_leaves_no_key() {
    # shellcheck disable=SC2016
    fresh -- sh -c 'echo "$KESTA_SOFTKEY_HOME" >home; kill -9 $$' || true
    [[ -s home && ! -e $(<home) ]] || fail "the state is still there"
}

test_exit_status_and_output_are_the_commands() {
    ends 7 fresh -- sh -c 'echo told; echo complained >&2; exit 7'
    expect_equal "output" told "$(<out)"
    expect_equal "complaints" complained "$(<err)"
    ends 137 fresh -- sh -c 'kill -9 $$'
    echo asked | ends 0 fresh -- cat
    expect_equal "what it read" asked "$(<out)"
}

test_several_at_once_see_their_own_key_alone() {
    local i
    for i in 1 2 3 4 5 6; do
        "$launcher" --softkey "$KESTA_KEY_BIN" --log "$i.log" --fresh --key "KEY0000$i" -- \
            sh -c 'softkey list; ukey info; ukey pin verify' >"said.$i" 2>&1 &
    done
    wait
    for i in 1 2 3 4 5 6; do
        expect_equal "keys that the command $i saw" "KEY0000$i" \
            "$(grep -oE 'KEY0000[0-9]' "said.$i" | sort -u | xargs)"
        grep -q 'Key *KEY0000' "said.$i" || fail "$(<"said.$i")"
        grep -q GetPrintNumber "$i.log" || fail "the log $i lacks its calls"
    done
}

# The empty file that a log is put over belongs to all of them: none takes it from under the others.
test_several_at_once_keep_their_logs_apart_and_leave_none() {
    local build=${KESTA_BIN%/*} rest=here
    mkdir tmp
    # A build folder below /tmp shows its place there.
    [[ $build != /tmp/* ]] || rest=$(printf '%s\n' here "$(cut -d/ -f3 <<<"$build")" | sort)
    # shellcheck disable=SC2016,SC2086
    bwrap --dev-bind / / --bind tmp /tmp --ro-bind "$build" "$build" --bind "$PWD" /tmp/here --chdir /tmp/here \
        bash -c 'for i in 1 2 3 4 5 6 7 8; do
            "$0" --softkey "$1" --log "$i.log" sh -c "sleep 0.$i; echo record $i >>'$log_file'" &
        done; wait' "$launcher" "$KESTA_KEY_BIN"
    expect_equal "records" "$(printf 'record %s\n' 1 2 3 4 5 6 7 8)" "$(cat ./[1-8].log)"
    expect_equal "what is left in /tmp" "$rest" "$(ls -A tmp)"
}

test_makers_files_are_left_alone() {
    local files=/opt/apps/com.zrk.uoskesta/files
    mkdir -p opt/apps/com.zrk.uoskesta/files/bin
    touch opt/apps/com.zrk.uoskesta/files/bin/libOfTheMaker.so
    bwrap --dev-bind / / --bind opt /opt --chdir "$PWD" -- "$launcher" --softkey "$KESTA_KEY_BIN" \
        --log log --fresh -- sh -c "ls $files/bin; ukey info" >said
    expect_matches "the key" 'FRESH001' "$(<said)"
    if grep libOfTheMaker said; then fail "the maker's library is seen inside"; fi
    expect_equal "what is left" libOfTheMaker.so "$(cd "opt/${files#/opt/}" && find . -type f -printf %f)"
}

test_pulled_out_key_is_seen_by_the_command() {
    ends 3 fresh -- sh -c 'softkey remove >/dev/null; ukey pin verify'
}

test_key_that_cannot_be_made_is_told() {
    KESTA_SOFTKEY_PIN=123 ends 125 fresh -- true
    expect_matches "why" 'the new key cannot be made: .*6 to 16' "$(<err)"
    ends 125 fresh --key 'no/serial' -- true
}

test_missing_command_is_told() {
    ends 127 fresh -- no-such-command
}

test_contradicting_options_are_refused() {
    ends 2 "$launcher" --key SK0001 -- true
    ends 2 fresh --home state -- true
}

test_ordinary_user_gets_a_key() {
    need setpriv
    local as=()
    ((EUID != 0)) || as=(setpriv --reuid 65534 --regid 65534 --clear-groups)
    chmod a+rwx .
    "${as[@]}" "$launcher" --softkey "$KESTA_KEY_BIN" --fresh -- softkey list >said
    grep -q FRESH001 said || fail "$(<said)"
}

run_claims "$@"
