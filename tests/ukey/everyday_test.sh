#!/usr/bin/env bash
# The ukey command against the software key: label, data, locale, codes, events.
# shellcheck source=tests/ukey/support.bash
. "$(dirname "$(readlink -f "$0")")/support.bash"

test_label_is_written_and_read() {
    new_key
    shaped '{"ok":"true","serial":"text","label":"text"}' ukey label set 'Second floor' --json
    ends 0 ukey label get
    expect_equal "label" "Second floor" "$(<out)"
    shaped '{"ok":"true","serial":"text","label":"text"}' ukey label get --json
}

test_data_is_written_and_read_byte_by_byte() {
    new_key
    shaped '{"ok":"true","name":"text","number":"number","length":"number"}' \
        ukey data set branch-code --value 0417 --json
    ends 0 ukey data get branch-code
    expect_equal "value" 0417 "$(<out)"
    expect_equal "bytes" 4 "$(wc -c <out)"
    printf 'from a file' | ends 0 ukey data set branch-code --number 2
    shaped '{"ok":"true","name":"text","number":"number","value":"text"}' \
        ukey data get branch-code --number 2 --json
}

test_data_limits_are_told_before_the_key_is_asked() {
    fails 2 usage ukey data get short
    fails 2 usage ukey data set a-name-that-is-too-long --value x
    head -c 301 /dev/zero | tr '\0' A | fails 2 usage ukey data set branch-code
    new_key
    fails 8 not-found ukey data get branch-code
}

test_data_is_not_erased_by_an_empty_pipe() {
    new_key
    ukey data set branch-code --value 0417 >/dev/null
    : | fails 2 usage ukey data set branch-code
    expect_matches "said" 'standard input is empty' "$(<out)"
    : >nothing
    fails 2 usage ukey data set branch-code nothing
    expect_equal "kept" 0417 "$(ukey data get branch-code)"
    ends 0 ukey data set branch-code --value ''
    expect_equal "erased when told so" '' "$(ukey data get branch-code)"
}

test_label_does_not_steer_the_terminal() {
    need script
    softkey create --serial CLI00001 --label $'a\302\2332Jb\033[2Jc' >/dev/null
    export KESTA_SOFTKEY_HOME=$scratch/key
    TERM=dumb script -qec "$(printf '%q ' "$KESTA_BIN/ukey-sandbox" --softkey "$KESTA_KEY_BIN" --log \
        "$scratch/library.log" "$ukey_command" label get)" /dev/null >shown
    expect_equal "shown" 'a?2Jb?[2Jc' "$(tr -d '\r' <shown)"
    ends 0 ukey label get --json
    grep -q '\\u009b2Jb\\u001b' out || fail "$(<out)"
    ends 0 ukey label get
    expect_equal "as it is in a pipe" $'a\302\2332Jb\033[2Jc' "$(<out)"
}

test_hint_shows_while_wait_waits() {
    need script
    new_key
    export KESTA_SOFTKEY_HOME=$scratch/key
    TERM=dumb script -qec "$(printf '%q ' "$KESTA_BIN/ukey-sandbox" --softkey "$KESTA_KEY_BIN" --log \
        "$scratch/library.log" "$ukey_command" wait --timeout 0.3)" /dev/null >shown || true
    expect_matches "hint" 'Waiting for a key to be inserted or removed' "$(<shown)"
}

test_charset_and_language_are_handed_on() {
    shaped '{"ok":"true","charset":"text"}' ukey charset GB18030 --json
    shaped '{"ok":"true","language":"text"}' ukey language zh_CN --json
    fails 2 usage ukey language xx
}

test_error_explains_codes_of_both_libraries() {
    ends 0 ukey error -101
    expect_matches "own" 'not-loaded, exit status 7' "$(<out)"
    ends 0 ukey error 4294967195
    expect_matches "unsigned" '-101 \(0xFFFFFF9B\)' "$(<out)"
    shaped '{"ok":"true","code":"number","codeText":"text","message":"text","from":"text",
        "kind":"text","exitStatus":"number"}' ukey error 0x5B21 --json
    grep -q '"message":"the PIN is wrong"' out || fail "$(<out)"
    fails 2 usage ukey error nonsense
}

test_messages_are_Chinese_where_the_locale_is() {
    # The shell itself would look for the locale, which need not be installed.
    in_Chinese() { in_sandbox env LC_ALL=zh_CN.UTF-8 "$ukey_command" "$@"; }
    ends 0 in_Chinese error 0x5B21
    expect_matches "text" 'PIN 码错误' "$(<out)"
}

test_check_install_asks_the_library() {
    shaped '{"ok":"true"}' ukey check-install --json
    ends 0 ukey check-install
    expect_matches "said" 'can be listed' "$(<out)"
}

# Something that happens once a wait has begun is seen by it, however long the machine takes.
test_wait_sees_a_key_come_and_go() {
    new_key
    ukey wait --count 2 --timeout 120 --json >events &
    local waiter=$!
    until_true "ukey waits" waits_begun 1
    softkey remove CLI00001 >/dev/null
    until_true "ukey waits again" waits_begun 2
    softkey insert CLI00001 >/dev/null
    wait "$waiter"
    expect_equal "events" "removed inserted" \
        "$(grep -o '"event":"[a-z]*"' events | cut -d'"' -f4 | xargs)"
    has_shape '{"ok":"true","event":"text","mediaId":"text"}' <(sed -n 1p events)
    has_shape '{"ok":"true","event":"text","mediaId":"text"}' <(sed -n 2p events)
}

test_wait_counts_the_events_that_it_is_asked_for() {
    softkey create --serial CLI00001 --media-id MEDIA-1 >/dev/null
    ukey wait --for inserted --timeout 120 >events &
    local waiter=$!
    until_true "ukey waits" waits_begun 1
    softkey remove CLI00001 >/dev/null
    until_true "ukey waits again" waits_begun 2
    softkey insert CLI00001 >/dev/null
    wait "$waiter"
    expect_equal "events" "inserted  MEDIA-1" "$(<events)"
}

test_list_tells_slots_media_ids_and_a_lone_serial_number() {
    fails 7 not-loaded bare list --library ./nowhere.so
    ends 0 ukey list
    expect_equal "none" "no keys" "$(<out)"
    softkey create --serial CLI00001 --media-id MEDIA-1 >/dev/null
    ends 0 ukey list
    expect_matches "one" '1 +MEDIA-1 +CLI00001' "$(<out)"
    softkey create --serial CLI00002 --media-id MEDIA-2 >/dev/null
    shaped '{"ok":"true","keys":[{"slot":"number","mediaId":"text"}]}' ukey list --json
    expect_equal "both" "MEDIA-1 MEDIA-2" "$(grep -o 'MEDIA-[12]' out | xargs)"
    ends 0 ukey list
    expect_matches "said" 'not known.*tells no serial numbers' "$(<out)"
}

test_wait_gives_up_in_time() {
    new_key
    fails 11 timeout ukey wait --timeout 0.3
}

test_wait_is_ended_cleanly_by_a_signal() {
    new_key
    # Inside, so that the signal reaches ukey and not the sandbox around it.
    # shellcheck disable=SC2016
    in_sandbox bash -c '"$1" wait --forever & waiter=$!
        until [[ -s /tmp/ValtoPinpad_KESTA.log ]]; do sleep 0.05; done
        kill -TERM "$waiter"; wait "$waiter"' bash "$ukey_command" && fail "it succeeded"
    expect_equal "status" 130 "$?"
}

run_claims "$@"
