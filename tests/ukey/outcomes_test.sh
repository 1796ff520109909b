#!/usr/bin/env bash
# What all subcommands have in common: they end with the status that the help lists, say in a person's
# words and in JSON what was done, and nothing is left untested. KESTA_SOURCE is the source tree.
# shellcheck source=tests/ukey/support.bash
. "$(dirname "$(readlink -f "$0")")/support.bash"

# The rows of the table, a tab between the columns.
rows() {
    sed -E '/^#|^$/d; s/ *\| */\t/g' "${KESTA_SOURCE:?names the source tree}/tests/ukey/outcomes.table"
}
on_the_library() { rows | cut -f1; }

# A key with both certificates, and the files that the tables name.
key_with_files() {
    enrolled_key
    echo -n text >text
    printf 'one\ntwo\n' >two
    printf 'a letter' | openssl pkeyutl -encrypt -certin -inkey enc.pem | base64 >cipher
    echo '{"rules": [{"entry": "GetPinInfo", "length": 5000}]}' >plan.json
}

test_without_the_library_each_ends_with_its_own_status() {
    local line
    echo x | tee text two cipher sign.pem >/dev/null
    while read -r line; do
        # shellcheck disable=SC2086
        fails 7 not-loaded bare $line --library ./nowhere.so </dev/null
        grep -q '"operation":"Load"' out || fail "$line:" "$(<out)"
    done < <(on_the_library | grep -v '^report')  # which tells of it and succeeds
}

# In one sandbox, since there are many: the status of each, and the kind of its failure.
test_without_a_key_each_ends_as_the_table_says() {
    key_with_files
    softkey remove >/dev/null
    # shellcheck disable=SC2016
    on_the_library | in_sandbox bash -c 'while read -r line; do
        status=0
        "$1" $line --json </dev/null >"$2" || status=$?
        echo "$line|$status $(jq -r ".error.kind // empty" "$2")"
    done' bash "$ukey_command" "$scratch/said" | sed 's/ $//' >actual
    rows | awk -F '\t' '{ print $1 "|" $4 }' >expected
    expect_same_lines "not each ends so" expected actual
}

test_each_says_what_was_done_and_in_JSON_too() {
    key_with_files
    export KESTA_SOFTKEY_NEW_PIN=135790
    local command words members
    while IFS=$'\t' read -r command words members _; do
        # shellcheck disable=SC2086
        if [[ $words != - ]]; then
            ends 0 ukey $command </dev/null
            grep -qE -- "$words" out || fail "said by $command:" "$(<out)" "expected: $words"
        fi
        # shellcheck disable=SC2086
        if [[ $members != - ]]; then
            ends 0 ukey $command --json </dev/null
            expect_equal "members of $command" "true: ${members/none/}" \
                "$(jq -r '"\(.ok): " + (keys - ["ok"] | join(" "))' out)"
        fi
    done < <(rows)
}

test_wrong_option_ends_each_with_its_own_status() {
    local line
    while read -r line; do
        # shellcheck disable=SC2086
        fails 2 usage bare $line --nonsense </dev/null
    done < <(on_the_library && printf '%s\n' log doctor)
}

# ---- What the tests of single subcommands leave out

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

# The statuses of the help: what is done before, and a call that ends so.
endings() {
    cat <<'TEXT'
0   | true                        | ukey info
1   | true                        | ukey decrypt two
2   | true                        | ukey info --nonsense
3   | softkey remove              | ukey info --serial CLI00001
4   | true                        | ukey pin verify --serial CLI00001
5   | softkey button refuse       | ukey sign --text text
6   | softkey misbehave plan.json | ukey pin info
7   | true                        | bare info --library ./nowhere.so
8   | true                        | ukey cert info --key-type rsa
9   | true                        | ukey sign missing.txt
10  | true                        | bwrap --dev-bind / / --tmpfs /opt "$ukey_command" check-install
11  | true                        | ukey wait --timeout 0.1
12  | true                        | bare doctor --library ./nowhere.so
20  | ukey record -o case.rec -- "$ukey_command" info | bare replay case.rec -- "$ukey_command" list
130 | true                        | interrupted
TEXT
}

# Interrupted from inside: the signal is for ukey, not for the sandbox around it.
interrupted() {
    # shellcheck disable=SC2016
    in_sandbox bash -c '"$1" wait --forever & waiter=$!
        until [[ -s /tmp/ValtoPinpad_KESTA.log ]]; do sleep 0.05; done
        kill -TERM "$waiter"; wait "$waiter"' bash "$ukey_command"
}

test_every_exit_status_of_the_help_is_seen() {
    need bwrap
    key_with_files
    cp -r key whole
    bare --help | sed -n '/^Exit status:/,/^$/s/^  \([0-9]*\) .*/\1/p' >of_the_help
    local status before call
    while IFS='|' read -r status before call; do
        rm -rf key library.log
        cp -r whole key
        eval "$before" >/dev/null
        KESTA_SOFTKEY_PIN=$( ((status == 4)) && echo 000000 || echo 135790) \
            LD_LIBRARY_PATH=$( ((status == 10)) && echo "$KESTA_KEY_BIN") \
            eval "ends $status $call" </dev/null
        echo "${status// /}" >>seen
    done < <(endings)
    expect_same_lines "statuses" of_the_help seen
}

test_list_of_subcommands_is_the_one_of_the_help() {
    local name inner
    subcommands | while read -r name; do
        inner=$(subcommands "$name")
        # shellcheck disable=SC2059,SC2086
        if [[ -z $inner ]]; then echo "$name"; else printf "$name %s\n" $inner; fi
    done | grep -vE '^(completion |help)' | sort >of_the_help
    # A subcommand is one word or, where there is such a one, two.
    { on_the_library && printf '%s\n' log doctor record replay 'trace show'; } | while read -r name inner _; do
        grep -xF "$name ${inner:-}" of_the_help || echo "$name"
    done | sort -u >of_the_tests
    expect_same_lines "subcommands" of_the_help of_the_tests
}

run_claims "$@"
