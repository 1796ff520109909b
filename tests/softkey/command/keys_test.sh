#!/usr/bin/env bash
# The subcommands that make keys, look at them and handle them.
# shellcheck source=tests/softkey/command/support.bash
. "$(dirname "$(readlink -f "$0")")/support.bash"

# --- create

test_create_names_the_key_and_its_slot() {
    create --serial SK1 --label 'Li Wei' --media-id MEDIA1 --slot 7
    silent
    out_is 'created SK1 in slot 7'
}

test_create_answers_the_key_in_json() {
    create --serial SK1 --label '李伟' --media-id MEDIA1 --slot 7 --removed --json
    value_is /serial SK1
    value_is /label 李伟
    value_is /mediaId MEDIA1
    value_is /slot 7
    value_is /inserted false
    value_is /triesLeft 6
    value_is /maxTries 6
    value_is /locked false
    value_is /button press
}

test_create_makes_up_what_is_not_given() {
    create --json
    value_is /slot 1
    local serial
    serial=$(value_at /serial)
    value_is /label "$serial"
    create --json
    value_is /slot 2
    [ "$(value_at /serial)" != "$serial" ] || fail "the same serial number again"
}

test_create_takes_the_pin_from_a_file() {
    printf '123456\nsecond line\n' >pin
    run 0 create --pin-file pin
}

test_create_takes_the_pin_from_the_standard_input() {
    printf '123456' | "$softkey" create --pin-stdin >out 2>err || fail "refused"
}

test_create_takes_no_line_end_of_windows_for_a_part_of_the_pin() {
    printf '12345\r\n' >pin
    run 4 create --pin-file pin
    printf '1234567890123456\r\n' >pin
    run 0 create --pin-file pin
}

test_create_names_a_pin_file_that_is_not_there() {
    run 5 create --pin-file none
    err_is 'softkey: none: No such file or directory'
    run 5 create --pin-file .
    err_is 'softkey: .: Is a directory'
}

test_create_refuses_a_cost_of_the_pin_that_is_none() {
    for cost in 1e400 -1024 99999999999999999999 '1024 '; do
        KESTA_SOFTKEY_PIN=123456 KESTA_SOFTKEY_PIN_COST=$cost run 2 create
        err_is "softkey: an argument is missing or malformed: KESTA_SOFTKEY_PIN_COST=$cost"
        KESTA_SOFTKEY_PIN_COST=$cost run 0 create --help
    done
}

test_create_refuses_a_pin_that_nobody_can_enter() {
    for pin in '123456\0007' '\0331234567' '1234\t5678' '123456\177'; do
        # shellcheck disable=SC2059
        printf "$pin" >pin
        run 2 create --pin-file pin
        err_is 'softkey: an argument is missing or malformed: a PIN holds no control characters'
    done
}

test_create_refuses_pins_of_wrong_length() {
    for pin in 12345 12345678901234567 "$(printf '%0300d' 0)"; do
        KESTA_SOFTKEY_PIN=$pin run 4 create
        err_is 'softkey: the PIN must have 6 to 16 characters'
    done
    run 0 list
    out_is 'no keys'
}

test_create_without_a_pin_says_how_to_give_one() {
    PATH=$scratch run 4 create
    err_is 'softkey: PIN entry cancelled: set KESTA_SOFTKEY_PIN, or give --pin-file or --pin-stdin'
    [ ! -e "$KESTA_SOFTKEY_HOME" ] || fail "the state folder was made all the same"
}

test_create_asks_pinentry_for_the_pin_and_its_repetition() {
    cat >pinentry <<'SCRIPT'
#!/usr/bin/env bash
echo OK
while read -r line; do
    case $line in
    BYE) echo OK; exit ;;
    GETPIN) echo 'S PIN_REPEATED'; echo 'D 123456' ;;
    esac
    echo OK
done
SCRIPT
    chmod +x pinentry
    PATH=$scratch:$PATH run 0 create --serial SK1
    out_is 'created SK1 in slot 1'
}

test_create_refuses_a_serial_number_twice() {
    create --serial SK1
    KESTA_SOFTKEY_PIN=123456 run 2 create --serial SK1
    run 0 list --json
    value_is /keys/0/slot 1
    if value_at /keys/1 >/dev/null; then fail "two keys"; fi
}

test_create_makes_keys_with_few_tries_and_locked_ones() {
    create --serial SK1 --tries-left 1 --json
    value_is /triesLeft 1
    value_is /maxTries 6
    create --serial SK2 --locked --json
    value_is /locked true
    for tries in 0 7 x; do KESTA_SOFTKEY_PIN=123456 run 2 create --tries-left "$tries"; done
    KESTA_SOFTKEY_PIN=123456 run 2 create --tries-left 2 --locked
}

test_create_makes_certificates_that_hold_when_it_is_told() {
    create --serial SK1 --not-after 2020-12-31
    create --serial SK2 --not-before 2040-01-01T12:30:00Z
    create --serial SK3 --certificates
    create --serial SK4 --not-before 2019-02-28 --not-after 2020-02-29
    local key expired=0 early=0 good=0
    for key in SK1 SK2 SK3 SK4; do
        for role in signing encryption; do
            run 0 export-cert "$key" --role $role -o cert.pem
            openssl verify -partial_chain -trusted cert.pem cert.pem >verdict 2>&1 || :
            case $(<verdict) in
            *'has expired'*) expired=$((expired + 1)) ;;
            *'not yet valid'*) early=$((early + 1)) ;;
            *OK) good=$((good + 1)) ;;
            *) fail "$(<verdict)" ;;
            esac
        done
    done
    expect_equal "expired, early, good" '4 2 2' "$expired $early $good"
    run 0 show SK2 --json
    value_is /pairs/0/certificate/notBefore 2040-01-01T12:30:00Z
    run 0 show SK4 --json
    value_is /pairs/1/certificate/notAfter 2020-02-29T00:00:00Z
    expect_equal "the usage" 'X509v3 Key Usage: critical
    Key Encipherment, Data Encipherment' "$(openssl x509 -in cert.pem -noout -ext keyUsage)"
}

test_create_refuses_dates_that_are_none() {
    for date in 2025-02-30 2025-13-01 20250101 2025-01-01T00:00 2025-01-01Z 1e400 ''; do
        KESTA_SOFTKEY_PIN=123456 run 2 create --not-before "$date"
    done
    KESTA_SOFTKEY_PIN=123456 run 2 create --not-before 2026-01-02 --not-after 2026-01-01
    err_is 'softkey: --not-after lies before --not-before'
    run 0 list
    out_is 'no keys'
}

test_create_refuses_malformed_names() {
    for serial in '../x' 'a b' "$(printf '%033d' 0)"; do
        KESTA_SOFTKEY_PIN=123456 run 2 create --serial "$serial"
    done
    KESTA_SOFTKEY_PIN=123456 run 2 create --slot -1
    KESTA_SOFTKEY_PIN=123456 run 2 create --slot x
}

test_no_pin_is_ever_printed_or_stored() {
    PIN=secret-654321 create --serial SK1
    out_lacks secret-654321
    run 0 show --json
    out_lacks secret-654321
    KESTA_SOFTKEY_NEW_PIN=secret-123456 run 0 unlock --erase
    out_lacks secret-123456
    if grep -rqaF secret- "$KESTA_SOFTKEY_HOME"; then fail "the PIN stands in the state folder"; fi
}

test_the_state_is_its_owners_alone() {
    umask 0
    create
    echo '{"rules": [{"entry": "SetData", "code": 1}]}' >plan
    run 0 misbehave plan
    [ "$(stat -c %a "$KESTA_SOFTKEY_HOME")" = 700 ] || fail "the folder is not 0700"
    local file
    for file in "$KESTA_SOFTKEY_HOME"/*; do
        [ "$(stat -c %a "$file")" = 600 ] || fail "$file is not 0600"
    done
}

# --- list and show

test_list_of_no_keys() {
    run 0 list
    out_is 'no keys'
    run 0 list --json
    value_is /keys '[]'
    [ ! -e "$KESTA_SOFTKEY_HOME" ] || fail "looking made the state folder"
}

test_list_is_aligned() {
    create --serial SK1 --media-id M1 --label '李伟 的密钥'
    create --serial LONGER-SERIAL --media-id M2 --slot 10 --removed
    run 0 list
    out_is 'SERIAL         SLOT  STATE     PIN      PAIRS  CERTS  MEDIA ID  LABEL
SK1            1     inserted  6 tries  0      0      M1        李伟 的密钥
LONGER-SERIAL  10    removed   6 tries  0      0      M2        LONGER-SERIAL'
}

test_list_in_json() {
    create --serial SK1
    create --serial SK2 --removed
    run 0 --json list
    value_is /keys/0/serial SK1
    value_is /keys/0/inserted true
    value_is /keys/0/pairs 0
    value_is /keys/0/certificates 0
    value_is /keys/1/inserted false
}

test_show_of_a_new_key() {
    create --serial SK1 --media-id M1
    run 0 show
    out_is 'serial    SK1
label     SK1
media id  M1
slot      1, inserted
PIN       6 of 6 tries left
button    press

no key pairs'
}

test_show_in_json_has_pairs_and_data() {
    create --serial SK1
    run 0 show SK1 --json
    value_is /pairs '[]'
    value_is /data '[]'
}

test_show_names_data_objects_without_their_values() {
    create --serial SK1
    "$KESTA_BIN/softkey_state_sql" "$KESTA_SOFTKEY_HOME" "INSERT INTO data(serial, name, number, value)
        VALUES('SK1', '数据对象', 1, 'hidden'), ('SK1', 'abcdefghij', 20, 'hidden too')" ||
        fail softkey_state_sql
    run 0 show
    out_has '  数据对象    number 1   6 bytes'
    out_has '  abcdefghij  number 20  10 bytes'
    out_lacks hidden
    run 0 show --json
    value_at /data/1 >/dev/null || fail "no second object"
    out_lacks hidden
}

test_show_tells_a_certificate_that_cannot_be_read_from_none() {
    create --serial SK1
    "$KESTA_BIN/softkey_state_sql" "$KESTA_SOFTKEY_HOME" "INSERT INTO pairs(serial, role, algorithm,
        public_key, wrapped, certificate) VALUES('SK1', 1, 2, x'00', x'00', x'3000'),
        ('SK1', 4, 1, x'00', x'00', x'')" || fail softkey_state_sql
    run 0 show
    grep -qE '^ *temporary RSA +no certificate$' out || fail "$(<out)"
    grep -qE '^ *signing SM2 +a certificate that cannot be read$' out || fail "$(<out)"
    run 0 show --json
    value_is /pairs/0/role temporary
    expect_equal "certificate" '[null,{"readable":false}]' "$(jq -c '[.pairs[].certificate]' out)"
}

test_control_characters_of_a_label_do_not_reach_the_terminal() {
    create --label $'a\e[31mb'
    run 0 list
    out_has 'a?[31mb'
    run 0 list --json
    value_is /keys/0/label $'a\e[31mb'
}

test_a_missing_key_is_not_found() {
    run 3 show
    err_is "softkey: no such key is present: no key was created yet in $KESTA_SOFTKEY_HOME"
    create --serial SK1
    for name in show unlock insert remove delete screen export-cert; do
        run 3 "$name" SK2
        err_is 'softkey: no such key is present: SK2'
    done
    run 3 button press SK2
}

test_no_key_is_left_behind_the_last() {
    create --serial SK1
    run 0 delete SK1
    run 3 show
    err_is "softkey: no such key is present: no key was created yet in $KESTA_SOFTKEY_HOME"
}

test_one_of_several_keys_must_be_named() {
    create --serial SK1
    create --serial SK2
    for name in show unlock insert remove screen export-cert; do
        run 2 "$name"
        err_is 'softkey: several keys are present, name one by its serial number: SK1, SK2'
    done
}

test_errors_are_json_too() {
    local failure='{"ok":"false","error":{"kind":"text","message":"text","code":"number",
        "codeText":"text"}}'
    run 3 --json show
    silent
    has_shape "$failure" out
    value_is /error/kind not-found
    value_is /error/code 23313
    value_is /error/codeText 0x00005B11
    cp out before
    run 3 show --json
    expect_same_lines "the option behind the command" before out
    run 2 --json nonsense
    value_is /error/kind usage
    value_is /ok false
}

# --- unlock, insert, remove, delete

test_remove_and_insert_say_whether_they_changed_anything() {
    create --serial SK1
    run 0 remove
    out_is 'removed SK1, slot 1'
    run 0 remove --json
    value_is /changed false
    value_is /inserted false
    run 0 insert SK1
    out_is 'inserted SK1, slot 1'
    run 0 insert
    out_is 'SK1 was inserted already'
}

test_a_key_goes_into_another_slot_or_that_of_a_key_that_is_out() {
    create --serial SK1
    create --serial SK2 --removed
    KESTA_SOFTKEY_PIN=123456 run 2 insert SK2 --slot 1
    err_is 'softkey: an argument is missing or malformed: slot 1 is taken by SK1'
    run 0 insert SK2 --slot 7
    out_is 'inserted SK2, slot 7'
    run 0 remove SK1
    run 0 remove SK2
    run 0 insert SK2 --slot 1
    out_is 'inserted SK2, slot 1'
    run 0 show SK1 --json
    value_is /slot 2
    run 2 insert SK1 --slot -1
}

test_delete_needs_a_name_and_removes_the_key() {
    create --serial SK1
    run 2 delete
    run 0 delete SK1
    out_is 'deleted SK1'
    run 0 list
    out_is 'no keys'
}

test_unlock_gives_back_all_tries() {
    create --serial SK1
    "$KESTA_BIN/softkey_state_sql" "$KESTA_SOFTKEY_HOME" 'UPDATE keys SET tries_left = 0' || fail softkey_state_sql
    run 0 list
    out_has locked
    run 0 unlock
    out_is 'unlocked SK1, 6 tries left'
    run 0 show --json
    value_is /triesLeft 6
    value_is /locked false
}

test_unlock_with_erase_needs_a_new_pin() {
    create --serial SK1
    PATH=$scratch run 4 unlock --erase
    err_is \
        'softkey: PIN entry cancelled: set KESTA_SOFTKEY_NEW_PIN, or give --pin-file or --pin-stdin'
    KESTA_SOFTKEY_NEW_PIN=123 run 4 unlock --erase
    run 2 unlock --pin-stdin
    KESTA_SOFTKEY_NEW_PIN=654321 run 0 unlock --erase
    out_is 'erased and unlocked SK1, 6 tries left'
}

run_claims "$@"
