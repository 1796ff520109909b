#!/usr/bin/env bash
# What all subcommands have in common: they end with the status that the help lists, say in a person's
# words and in JSON what was done, and nothing is left untested. KESTA_SOURCE is the source tree.
# shellcheck source=tests/ukey/support.bash
. "$(dirname "$(readlink -f "$0")")/support.bash"

# Every subcommand that asks the library for something, with arguments that it takes.
on_the_library() {
    cat <<'TEXT'
info
list
self-test
pin verify
pin change
pin info
pin cache
pin forget
init --yes
request
batch-request
import some.text
cert get
cert dn
cert info
cert delete --yes
sign --text text
sign-hash --text 00
batch-sign some.text
decrypt some.text
label get
label set text
data get branch-code
data set branch-code --value 0417
charset UTF-8
language en_US
wait
error 0x5B21
check-install
TEXT
}

# Those that ask a key. Of a data object and of events, the key is not named.
on_a_key() { on_the_library | grep -vE '^(list|pin forget|data|charset|language|wait|error|check-install)'; }

leaf_of() { sed -E 's/ (--yes|--text.*|some\.text|text|branch-code.*|UTF-8|en_US|0x5B21)$//' <<<"$1"; }

test_without_the_library_each_ends_with_its_own_status() {
    local line
    echo text >some.text
    while read -r line; do
        # shellcheck disable=SC2086
        fails 7 not-loaded bare $line --library ./nowhere.so </dev/null
        grep -q '"operation":"Load"' out || fail "$line:" "$(<out)"
    done < <(on_the_library)
}

test_without_a_key_each_ends_with_its_own_status() {
    local line
    echo text >some.text
    # In one sandbox, since there are many.
    # shellcheck disable=SC2016
    on_a_key | in_sandbox bash -c 'while read -r line; do
        status=0
        "$1" $line --json </dev/null >"$2" || status=$?
        echo "$status $(grep -o "\"kind\":\"[a-z-]*\"" "$2") $line"
    done' bash "$ukey_command" "$scratch/said" >ends
    sed -E 's/^3 "kind":"key-absent" //' ends >absent
    on_a_key >expected
    expect_same_lines "not each ends with 3, key-absent" expected absent
}

test_wrong_option_ends_each_with_its_own_status() {
    local line
    while read -r line; do
        # shellcheck disable=SC2086
        fails 2 usage bare $line --nonsense </dev/null
    done < <(on_the_library && printf '%s\n' log doctor)
}

# ---- What the tests of single subcommands leave out

test_pin_commands_say_what_was_done() {
    new_key
    KESTA_SOFTKEY_NEW_PIN=975310 ends 0 ukey pin change
    expect_equal "said" "the PIN is changed" "$(<out)"
    export KESTA_SOFTKEY_PIN=975310
    ends 0 ukey pin cache
    expect_equal "said" "the PIN is right and cached" "$(<out)"
    ends 0 ukey pin cache --on
    expect_equal "said" "PIN caching is on" "$(<out)"
    ends 0 ukey pin forget
    expect_equal "said" "no PIN is cached" "$(<out)"
}

test_pin_change_with_a_wrong_PIN_or_a_short_new_one_fails() {
    new_key
    KESTA_SOFTKEY_PIN=000000 KESTA_SOFTKEY_NEW_PIN=975310 fails 4 pin ukey pin change
    KESTA_SOFTKEY_NEW_PIN=1 fails 4 pin ukey pin change
    ends 0 ukey pin verify
}

test_deletion_and_initialisation_say_what_was_done() {
    enrolled_key
    ends 0 ukey cert delete --type enc --yes
    expect_equal "said" "the enc sm2 certificate is deleted" "$(<out)"
    KESTA_SOFTKEY_NEW_PIN=975310 ends 0 ukey init --yes
    expect_equal "said" "the key CLI00001 is initialised" "$(<out)"
}

test_certificate_that_is_not_there_is_not_found() {
    new_key
    fails 8 not-found ukey cert dn
    fails 8 not-found ukey cert info --type enc
    fails 8 not-found ukey cert delete --yes
}

test_decrypted_text_is_in_the_JSON() {
    enrolled_key
    printf 'a letter' | openssl pkeyutl -encrypt -certin -inkey enc.pem | base64 >cipher.txt
    shaped '{"ok":"true","serial":"text","plain":"text"}' ukey decrypt cipher.txt --json
    grep -q '"plain":"a letter"' out || fail "$(<out)"
    shaped '{"ok":"true","serial":"text","output":"text"}' ukey decrypt cipher.txt --json -o plain
    expect_equal "file" "a letter" "$(<plain)"
    expect_equal "mode" 600 "$(stat -c %a plain)"
}

test_label_and_locale_say_what_was_done() {
    new_key
    ends 0 ukey label set 'Second floor'
    expect_equal "said" 'the label is "Second floor"' "$(<out)"
    ends 0 ukey charset GB18030
    expect_matches "said" 'knows the charset GB18030; it holds for this command alone' "$(<out)"
    ends 0 ukey language zh_CN
    expect_matches "said" 'knows the language zh_CN; it holds for this command alone' "$(<out)"
    fails 2 usage ukey charset EBCDIC
}

test_length_that_cannot_be_true_has_its_own_status() {
    new_key
    echo '{"rules": [{"entry": "GetPinInfo", "length": 5000}]}' >plan.json
    softkey misbehave plan.json >/dev/null
    fails 6 buffer ukey pin info
    expect_matches "reason" '5000 bytes where at most 8 are possible' "$(<out)"
}

test_unknown_key_is_absent() {
    new_key
    fails 3 key-absent ukey pin info --serial NOSUCHKEY
    fails 3 key-absent ukey label get --serial NOSUCHKEY
    fails 3 key-absent ukey label set --serial NOSUCHKEY text
}

test_install_directory_that_is_not_there_is_told() {
    need bwrap
    # The event library is elsewhere, so that the client library can be loaded at all.
    LD_LIBRARY_PATH=$KESTA_KEY_BIN fails 10 unsupported bwrap --dev-bind / / --tmpfs /opt \
        "$ukey_command" check-install
    expect_matches "said" 'the install directory cannot be listed' "$(<out)"
}

# ---- What a person sees, and no program

test_file_that_was_written_is_named() {
    enrolled_key
    ends 0 ukey sign --text data -w 'Sign?' -o data.sig
    expect_equal "said" "signature written to data.sig" "$(<out)"
    ends 0 ukey cert dn -o name
    expect_equal "said" "distinguished name written to name" "$(<out)"
    printf 'one\ntwo\n' | ends 0 ukey batch-sign -o both.sig
    expect_equal "said" "2 signatures written to both.sig" "$(<out)"
    ends 0 ukey cert dn -o -
    expect_equal "standard output" "$(<name)" "$(<out)"
}

# on_a_terminal COMMAND...: what it shows there.
on_a_terminal() {
    need script
    TERM=dumb script -qec "$(printf '%q ' "$@")" /dev/null | tr -d '\r'
}

test_prompt_does_not_stand_behind_a_value() {
    new_key
    ukey data set branch-code --value 0417 >/dev/null
    export KESTA_SOFTKEY_HOME=$scratch/key
    on_a_terminal "$KESTA_BIN/ukey-sandbox" --softkey "$KESTA_KEY_BIN" --log library.log \
        "$ukey_command" data get branch-code >shown
    expect_equal "lines" 1 "$(wc -l <shown)"
    expect_equal "value" 0417 "$(<shown)"
}

test_columns_of_the_log_have_names_on_a_terminal_alone() {
    new_key
    ukey info >/dev/null
    on_a_terminal "$ukey_command" log library.log >shown
    expect_matches "head" '^Day and time .* Result$' "$(head -n 1 shown)"
    bare log library.log >piped
    expect_equal "without it" "$(tail -n +2 shown)" "$(<piped)"
    expect_equal "column" "$(head -n 1 shown | grep -bo Call | cut -d: -f1)" \
        "$(head -n 1 piped | grep -bo GetDllVersion | cut -d: -f1)"
}

# ---- All of it

# The calls of all tests, one to a line.
calls() {
    local script
    for script in key everyday outcomes log doctor doctor_key shell; do
        sed 's/\\$//' "$KESTA_SOURCE/tests/ukey/${script}_test.sh"
    done | tr '\n' ' ' | sed -E 's/(^| )(ends|shaped|fails|finding) /\n\2 /g'
}

# tested NAME REGEX: there is such a call.
tested() { grep -qE "$2" all_calls || echo "$1" >>untested; }

# Not by these names: events are awaited in the background, doctor is called diagnose. Nothing but a
# missing library lets `pin forget` fail.
test_text_JSON_and_status_of_each_subcommand_are_tested() {
    local line leaf
    calls >all_calls
    : >untested
    while read -r line; do
        leaf=$(leaf_of "$line")
        [[ $leaf == wait ]] || tested "text of $leaf" "^ends 0 (ukey|bare) $leaf( |$)"
        [[ $leaf == wait ]] || tested "JSON of $leaf" "^shaped .*(ukey|bare) $leaf( |$).*--json"
        [[ $leaf == "pin forget" ]] || tested "status of $leaf" "^(fails [0-9]+ [a-z-]+|ends [1-9][0-9]*) (ukey|bare|bwrap .*command.) $leaf( |$)"
    done < <(on_the_library && echo log)
    [[ ! -s untested ]] || fail "nothing tests:" "$(<untested)"
}

test_every_exit_status_of_the_help_is_seen_by_a_test() {
    local status
    calls >all_calls
    for status in $(bare --help | sed -n '/^Exit status:/,/^$/s/^  \([0-9]*\) .*/\1/p'); do
        grep -qE "^(fails|ends) $status |\"status\" $status " all_calls || fail "no test ends with $status"
    done
}

test_list_of_subcommands_is_the_one_of_the_help() {
    local name inner
    subcommands | while read -r name; do
        inner=$(subcommands "$name")
        # shellcheck disable=SC2059,SC2086
        if [[ -z $inner ]]; then echo "$name"; else printf "$name %s\n" $inner; fi
    done | grep -vE '^(completion |help)' | sort >of_the_help
    { while read -r line; do leaf_of "$line"; done < <(on_the_library) && printf '%s\n' log doctor; } |
        sort >of_the_tests
    expect_same_lines "subcommands" of_the_help of_the_tests
}

run_claims "$@"
