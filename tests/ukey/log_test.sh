#!/usr/bin/env bash
# ukey log as a command: what it prints of a log, and how it follows one.
# shellcheck source=tests/ukey/log_support.bash
. "$(dirname "$(readlink -f "$0")")/log_support.bash"

test_calls_have_durations_and_results() {
    some_log >log
    ends 0 bare log log
    expect_equal "lines" 3 "$(wc -l <out)"
    expect_matches "ok" '21 09:00:00\.000  41/1 +GetDllVersion +12 ms +ok' "$(<out)"
    expect_matches "failed" 'ChangePin +3\.5 s +-101  the token library is missing' "$(<out)"
    expect_matches "no end" 'ImportEncX509Cert +- +no end logged' "$(<out)"
}

test_calls_are_in_the_order_in_which_they_began() {
    { record 21,09:00:00.000 ChangePin Begin 41 -1 && record 21,09:00:01.000 GetDllVersion 'Begin x' 41 -2 &&
        record 21,09:00:02.000 GetDllVersion 'End G_LastError: 00000000' 41 -2; } >log
    expect_equal "order" "ChangePin GetDllVersion" "$(bare log log | awk '{ print $4 }' | xargs)"
    expect_equal "the last" "GetDllVersion" "$(bare log log --last 1 | awk '{ print $4 }')"
}

# More calls than are kept while it is read.
test_last_calls_of_a_long_log_are_those_that_began_last() {
    local nth
    {
        record 21,09:00:00.000 ChangePin Begin 41 -1
        for ((nth = 1; nth <= 400; ++nth)); do
            record "21,09:0$((nth / 60)):$(printf %02d $((nth % 60))).000" GetDllVersion 'Begin x' 41 -2
            record "21,09:0$((nth / 60)):$(printf %02d $((nth % 60))).500" GetDllVersion 'End G_LastError: 00000000' 41 -2
        done
        record 21,09:09:00.000 ChangePin 'End G_LastError: 00000000' 41 -1
    } >log
    bare log log >whole
    expect_equal "calls" 401 "$(wc -l <whole)"
    # Threads are numbered as they are shown.
    tail -n 30 whole | awk '{ print $2, $4 }' >expected
    bare log log --last 30 | awk '{ print $2, $4 }' >found
    expect_same_lines "the last 30" expected found
}

test_json_has_all_calls() {
    some_log >log
    shaped '{"ok":"true","file":"text","strangeBytes":"number","calls":['"$call_shape"']}' \
        bare log log --json
    expect_equal "calls" 3 "$(grep -o '"operation"' out | wc -l)"
    shaped '{"ok":"true","file":"text","strangeBytes":"number","calls":['"$call_shape"']}' \
        bare log log --json --records
    expect_equal "records" 6 "$(grep -o '"tag"' out | wc -l)"
}

test_keys_are_hidden_unless_asked_for() {
    some_log >log
    bare log log --records >shown
    grep -q SECRET shown && fail "the key is shown"
    grep -q '<12 characters hidden>' shown || fail "$(<shown)"
    bare log log --records --json | grep -q SECRET && fail "the key is in the JSON"
    bare log log --records --show-keys | grep -q SECRETSECRET || fail "--show-keys shows nothing"
}

test_serial_number_is_shown_as_text() {
    some_log >log
    expect_matches "serial" '434C49 = CLI' "$(bare log log --records)"
}

test_filters_choose_calls() {
    some_log >log
    expect_equal "failed" 1 "$(bare log log --failed | wc -l)"
    expect_equal "last" 1 "$(bare log log --last 1 | grep -c ImportEncX509Cert)"
    expect_equal "operation" 1 "$(bare log log --operation GetDllVersion | wc -l)"
}

test_missing_log_is_told() {
    fails 9 file bare log missing
}

test_bytes_of_no_record_are_counted() {
    { printf 'garbage\r\n' && some_log; } >log
    ends 0 bare log log
    expect_matches "counted" '9 bytes of the log belong to no record' "$(<err)"
}

test_control_characters_do_not_reach_the_terminal() {
    record 21,09:00:00.000 "Tag"$'\033'"[2J" Begin >log
    bare log log --records | grep -q $'\033' && fail "an escape code of the log is printed"
    return 0
}

test_follow_shows_calls_as_they_begin_and_end() {
    some_log >log
    "$ukey_command" log --follow log >followed &
    local follower=$!
    awaited 'ImportEncX509Cert'
    record 21,10:00:00.000 TestInitUKey Begin >>log
    awaited 'TestInitUKey .*begins'
    record 21,10:00:02.000 TestInitUKey 'End G_LastError: 00000000' >>log
    awaited 'TestInitUKey +2.0 s +ok\|TestInitUKey  *2\.0 s  *ok'
    # The library deletes the log when it has grown too large, and begins anew.
    rm log
    record 21,11:00:00.000 VerifyAgain Begin >log
    awaited VerifyAgain
    kill -INT "$follower"
    local status=0
    wait "$follower" || status=$?
    expect_equal "status" 130 "$status"
}

test_follow_waits_for_a_log_that_is_not_there_yet() {
    "$ukey_command" log --follow --json log >followed &
    local follower=$!
    sleep 0.5
    some_log >log
    awaited '"operation":"ChangePin".*"state":"ended"'
    kill -INT "$follower"
    wait "$follower" || true
    has_shape '{"ok":"true","operation":"text","process":"number","thread":"number",
        "state":"text","begin?":"text"}' <(head -n 1 followed)
}

run_claims "$@"
