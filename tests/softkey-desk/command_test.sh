#!/bin/bash
# command_test.sh TEST SOFTKEY JSON_VALUE SOURCE_FOLDER: one test of the command `softkey`. Each
# function whose name begins with test_ is a test, in an empty state folder.
set -u

softkey=$2
json_value=$3
source=$4
work=$(mktemp -d) || exit 1
trap 'rm -rf "$work"' EXIT
cd "$work" || exit 1
export KESTA_SOFTKEY_HOME=$work/home
unset KESTA_SOFTKEY_PIN KESTA_SOFTKEY_NEW_PIN

fail() {
    printf '%s: %s\n' "${FUNCNAME[2]}" "$1" >&2
    printf -- '--- stdout\n%s\n--- stderr\n%s\n' "$(cat out)" "$(cat err)" >&2
    exit 1
}

# run CODE ARGUMENTS…: the command ends with that exit code; its output is in out and err.
run() {
    local wanted=$1 got
    shift
    "$softkey" "$@" >out 2>err </dev/null
    got=$?
    [ "$got" -eq "$wanted" ] || fail "softkey $*: exit code $got instead of $wanted"
}

out_is() { [ "$(cat out)" = "$1" ] || fail "the output is not: $1"; }
err_is() { [ "$(cat err)" = "$1" ] || fail "the error output is not: $1"; }
out_has() { grep -qF -- "$1" out || fail "the output lacks: $1"; }
out_lacks() { if grep -qF -- "$1" out err; then fail "the output has: $1"; fi; }
silent() { [ ! -s err ] || fail "the error output is not empty"; }

# value_is POINTER VALUE [FILE]
value_is() {
    local got
    got=$("$json_value" "$1" <"${3:-out}") || fail "no JSON value at $1"
    [ "$got" = "$2" ] || fail "$1 is $got instead of $2"
}

create() { KESTA_SOFTKEY_PIN=${PIN-123456} run 0 create "$@"; }

subcommands="create list show unlock insert remove delete check screen button misbehave envelope
export-cert path"

# --- help

test_help_of_the_command_names_every_subcommand_and_exit_code() {
    run 0 --help
    silent
    for name in $subcommands; do grep -qE "^  $name +" out || fail "no $name"; done
    for code in 0 1 2 3 4 5 6 7; do grep -qE "(codes:|,|^) ?$code " out || fail "no $code"; done
}

test_help_of_every_subcommand_has_examples() {
    for name in $subcommands; do
        run 0 "$name" --help
        silent
        grep -qx 'Examples:' out || fail "no examples of $name"
        grep -qE "^  .*softkey $name" out || fail "no example of $name"
    done
}

test_no_subcommand_is_bad_usage() {
    run 2
    err_is 'softkey: A subcommand is required (see softkey --help)'
}

test_an_unknown_option_is_bad_usage() {
    run 2 list --loud
    out_is ''
    run 2 create --pin 123456
}

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
    value_is /media_id MEDIA1
    value_is /slot 7
    value_is /inserted false
    value_is /tries_left 6
    value_is /max_tries 6
    value_is /locked false
    value_is /button press
}

test_create_makes_up_what_is_not_given() {
    create --json
    value_is /slot 1
    local serial
    serial=$("$json_value" /serial <out)
    value_is /label "$serial"
    create --json
    value_is /slot 2
    [ "$("$json_value" /serial <out)" != "$serial" ] || fail "the same serial number again"
}

test_create_takes_the_pin_from_a_file() {
    printf '123456\nsecond line\n' >pin
    run 0 create --pin-file pin
}

test_create_takes_the_pin_from_the_standard_input() {
    printf '123456' | "$softkey" create --pin-stdin >out 2>err || fail "refused"
}

test_create_names_a_pin_file_that_is_not_there() {
    run 5 create --pin-file none
    err_is 'softkey: none: No such file or directory'
    run 5 create --pin-file .
    err_is 'softkey: .: Is a directory'
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
    PATH=$work run 4 create
    err_is 'softkey: PIN entry cancelled: set KESTA_SOFTKEY_PIN, or give --pin-file or --pin-stdin'
    [ ! -e "$KESTA_SOFTKEY_HOME" ] || fail "the state folder was made all the same"
}

test_create_asks_pinentry_for_the_pin_and_its_repetition() {
    cat >pinentry <<'SCRIPT'
#!/bin/bash
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
    PATH=$work:$PATH run 0 create --serial SK1
    out_is 'created SK1 in slot 1'
}

test_create_refuses_a_serial_number_twice() {
    create --serial SK1
    KESTA_SOFTKEY_PIN=123456 run 2 create --serial SK1
    run 0 list --json
    value_is /keys/0/slot 1
    "$json_value" /keys/1 <out 2>/dev/null && fail "two keys"
    return 0
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

test_one_of_several_keys_must_be_named() {
    create --serial SK1
    create --serial SK2
    for name in show unlock insert remove screen export-cert; do
        run 2 "$name"
        err_is 'softkey: several keys are present, name one by its serial number: SK1, SK2'
    done
}

test_errors_are_json_too() {
    run 3 --json show
    out_is ''
    value_is /error/exit_code 3 err
    value_is /error/code 0x5B11 err
    run 2 --json nonsense
    value_is /error/exit_code 2 err
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
    sqlite3 "$KESTA_SOFTKEY_HOME/softkey.db" 'UPDATE keys SET tries_left = 0' || fail sqlite3
    run 0 list
    out_has locked
    run 0 unlock
    out_is 'unlocked SK1, 6 tries left'
    run 0 show --json
    value_is /tries_left 6
    value_is /locked false
}

test_unlock_with_erase_needs_a_new_pin() {
    create --serial SK1
    PATH=$work run 4 unlock --erase
    err_is \
        'softkey: PIN entry cancelled: set KESTA_SOFTKEY_NEW_PIN, or give --pin-file or --pin-stdin'
    KESTA_SOFTKEY_NEW_PIN=123 run 4 unlock --erase
    run 2 unlock --pin-stdin
    KESTA_SOFTKEY_NEW_PIN=654321 run 0 unlock --erase
    out_is 'erased and unlocked SK1, 6 tries left'
}

# --- screen and button

test_the_screen_of_a_new_key_is_empty() {
    create --serial SK1
    run 0 screen
    out_is '(the screen is empty)'
    run 0 screen --json
    value_is /text ''
    value_is /waiting 0
}

test_the_button_keeps_its_decision() {
    create --serial SK1
    for decision in ask refuse press; do
        run 0 button "$decision"
        out_is "every question from now on: $decision"
        run 0 show --json
        value_is /button "$decision"
    done
    run 0 button ask
    run 0 button auto --json
    value_is /button press
    value_is /answered 0
}

test_an_unknown_decision_is_bad_usage() {
    create --serial SK1
    run 2 button perhaps
    run 2 button
}

# --- misbehave

test_a_plan_is_set_shown_and_cleared() {
    echo '{"rules": [{"entry": "SetData", "call": 2, "code": "KeyRemoved"}]}' >plan
    run 0 misbehave plan
    out_is 'in force: 1 rule'
    run 0 misbehave --show --json
    value_is /plan/rules/0/entry SetData
    value_is /calls '{}'
    run 0 misbehave --show
    out_has 'no calls yet'
    run 0 misbehave --clear
    out_is cleared
    run 0 misbehave --clear --json
    value_is /cleared false
    run 0 misbehave --show
    out_is 'no plan'
}

test_a_plan_may_come_from_the_standard_input() {
    echo '{"rules": [{"entry": "SetData", "code": 1}]}' | "$softkey" misbehave - >out 2>err ||
        fail refused
    out_is 'in force: 1 rule'
}

test_a_bad_plan_is_named_by_file_and_field() {
    echo '{"rules": [{"entry": "SetData", "cod": 1}]}' >plan
    run 5 misbehave plan
    out_is ''
    grep -qF 'softkey: plan: rules[0].cod: no such field' err || fail "not named"
    run 5 misbehave none
    err_is 'softkey: none: No such file or directory'
    run 2 misbehave
    run 2 misbehave plan --clear
}

# --- envelope and export-cert

test_an_envelope_is_one_line_of_base64_in_both_forms() {
    openssl genpkey -algorithm SM2 -out pair.pem 2>/dev/null || fail openssl
    openssl genpkey -algorithm SM2 -out temporary.pem 2>/dev/null || fail openssl
    openssl pkey -in temporary.pem -pubout -out to.pem || fail openssl
    run 0 envelope --to to.pem --pair pair.pem
    [ "$(wc -l <out)" -eq 1 ] || fail "more than one line"
    tr -d '\n' <out | base64 -d | openssl asn1parse -inform DER >parsed 2>/dev/null ||
        fail "not Base64 of DER"
    run 0 envelope --to to.pem --pair pair.pem --with-header
    local header=00000000000000010000000000000001000000000000000000000000000000000000000000000273
    [ "$(head -c 80 out)" = $header ] || fail "no header"
    [ "$(head -c 81 out | tail -c 1)" = M ] || fail "no Base64 behind the header"
    run 0 envelope --to to.pem --pair pair.pem --json
    [ "$("$json_value" /envelope <out | head -c 1)" = M ] || fail "no envelope"
    run 0 envelope --to to.pem --pair pair.pem --out file
    out_is ''
    [ "$(stat -c %a file)" = 600 ] || fail "the file is not 0600"
}

test_an_envelope_names_what_cannot_be_read() {
    openssl genpkey -algorithm SM2 -out pair.pem 2>/dev/null || fail openssl
    echo nonsense >nonsense
    run 5 envelope --to nonsense --pair pair.pem
    out_is ''
    run 5 envelope --to none --pair pair.pem
    err_is 'softkey: none: No such file or directory'
    run 5 envelope --to - --pair -
    run 2 envelope --to nonsense
}

test_export_of_a_certificate_that_is_not_there() {
    create --serial SK1
    run 3 export-cert
    err_is 'softkey: the key holds no such certificate: signing certificate on SK1'
    run 2 export-cert --role other
    run 2 export-cert --form text
}

# A certificate put straight into the database stands in for an import.
test_a_certificate_is_shown_and_exported_in_every_form() {
    create --serial SK1
    openssl req -x509 -newkey rsa:2048 -nodes -keyout key.pem -subj '/CN=Li Wei/O=Kesta' \
        -days 30 -set_serial 0x1234 -out cert.pem 2>/dev/null || fail openssl
    openssl x509 -in cert.pem -outform DER -out cert.der
    openssl pkey -in key.pem -pubout -outform DER -out public.der
    hex() { od -An -v -tx1 "$1" | tr -d ' \n'; }
    sqlite3 "$KESTA_SOFTKEY_HOME/softkey.db" "INSERT INTO pairs(serial, role, algorithm,
        public_key, wrapped, certificate) VALUES('SK1', 1, 1, x'$(hex public.der)',
        zeroblob(100), x'$(hex cert.der)')" || fail sqlite3
    run 0 show
    out_has 'signing RSA  subject  O=Kesta,CN=Li Wei'
    out_has 'issuer   O=Kesta,CN=Li Wei'
    run 0 show --json
    value_is /pairs/0/role signing
    value_is /pairs/0/certificate/serial 1234
    value_is /pairs/0/certificate/not_before "$(date -u -d \
        "$(openssl x509 -in cert.pem -noout -startdate | cut -d= -f2)" +%Y-%m-%dT%H:%M:%SZ)"
    run 0 list --json
    value_is /keys/0/certificates 1
    run 0 export-cert
    cmp out cert.pem || fail "another PEM"
    run 0 export-cert --form der --out exported.der
    cmp exported.der cert.der || fail "another DER"
    run 0 export-cert --form base64
    [ "$(base64 -d <out | cmp - cert.der)" = '' ] || fail "another Base64"
    run 0 export-cert --json
    value_is /role signing
    run 3 export-cert --role encryption
}

# --- check and path

test_check_of_sound_state() {
    create
    run 0 check
    out_is "$KESTA_SOFTKEY_HOME: no damage"
    run 0 check --json
    value_is /damage '[]'
}

test_check_of_no_state() {
    run 0 check
}

test_check_names_a_damaged_database() {
    create
    sqlite3 "$KESTA_SOFTKEY_HOME/softkey.db" 'PRAGMA wal_checkpoint(TRUNCATE)' >/dev/null
    printf 'garbage!garbage!' | dd of="$KESTA_SOFTKEY_HOME/softkey.db" conv=notrunc 2>/dev/null
    run 6 check
    out_has softkey.db
    run 6 list
    out_is ''
}

test_check_names_a_damaged_plan() {
    create
    umask 077
    echo '{"rules": [{}]}' >"$KESTA_SOFTKEY_HOME/misbehaviour.json"
    run 6 check
    out_is "$KESTA_SOFTKEY_HOME/misbehaviour.json: rules[0].entry: is missing"
}

test_check_names_a_file_that_others_may_read() {
    create
    chmod 644 "$KESTA_SOFTKEY_HOME/softkey.db"
    run 6 check --json
    value_is /damage/0 "$KESTA_SOFTKEY_HOME/softkey.db: open to others than its owner, mode 644"
}

test_path_follows_the_environment() {
    run 0 path
    out_is "$KESTA_SOFTKEY_HOME"
    unset KESTA_SOFTKEY_HOME
    XDG_DATA_HOME=/data run 0 path
    out_is /data/kesta-softkey
    XDG_DATA_HOME='' HOME=/somebody run 0 path --json
    value_is /path /somebody/.local/share/kesta-softkey
}

test_a_folder_out_of_reach_is_a_state_error() {
    : >file
    KESTA_SOFTKEY_PIN=123456 KESTA_SOFTKEY_HOME=$work/file/home run 7 create
}

test_an_output_that_cannot_be_written_is_an_error() {
    "$softkey" path >/dev/full 2>err
    [ $? -eq 7 ] || fail "exit code"
    : >out
    err_is 'softkey: the standard output cannot be written'
}

# --- the manual page

test_the_manual_page_has_no_errors() {
    local page=$source/docs/man/softkey.1
    man --warnings -E UTF-8 -l "$page" >out 2>err || fail "man failed"
    silent
    [ -s out ] || fail "the page is empty"
}

test_the_manual_page_knows_every_subcommand_and_option() {
    local page=$source/docs/man/softkey.1 option
    for name in $subcommands; do
        grep -qE "^\.B(R|I)? \"?(softkey )?$name\b" "$page" || fail "the page lacks $name"
        run 0 "$name" --help
        for option in $(grep -oE -- '^ +(-h,)?--[a-z-]+' out | sed 's/.*--/--/'); do
            grep -qF -- "${option//-/\\-}" "$page" || fail "the page lacks $option of $name"
        done
    done
}

: >out
: >err
case $1 in
test_*) declare -F "$1" >/dev/null || { echo "no such test: $1" >&2; exit 1; } ;;
*) echo "usage: command_test.sh TEST SOFTKEY JSON_VALUE SOURCE_FOLDER" >&2; exit 1 ;;
esac
"$1"
