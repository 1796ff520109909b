#!/usr/bin/env bash
# ukey doctor on the software key: which key, its PIN, its certificates.
# shellcheck source=tests/ukey/doctor_support.bash
. "$(dirname "$(readlink -f "$0")")/doctor_support.bash"

diagnose() { ukey doctor "$@"; }

plan() { echo "{\"rules\":[$1]}" | softkey misbehave - >/dev/null; }

test_software_key_is_well_without_USB_and_companions() {
    new_key
    finding software-key fine "stands in for the maker's libraries"
    diagnose --json >found
    jq -r '.findings[].id' found >ids
    grep -qE 'usb|companions' ids && fail "it asks for USB or companions" "$(<ids)"
    verdict '^All is well: the key CLI00001 answers\.$'
}

test_several_keys_are_named_as_such() {
    new_key
    softkey create --serial CLI00002 >/dev/null
    finding key problem 'several keys are present.*ukey doctor --serial SN'
    verdict '^1 problem: begin with the remedy for the key\.$'
    ends 0 diagnose --serial CLI00002
    expect_matches "the named one" 'key +CLI00002' "$(<out)"
    diagnose() { ukey doctor --serial CLI00003 "$@"; }
    finding key problem 'no such key is present.*ask again: ukey doctor --serial CLI00003'
}

test_busy_key_is_named_as_such() {
    new_key
    plan '{"entry":"CheckDeviceEx","code":"StateBusy"}'
    finding key problem 'it is busy: .*end the other program'
    plan '{"entry":"GetCertInfo","code":"StateBusy"}'
    finding key problem 'it is busy: '
}

test_key_pulled_out_meanwhile_is_told() {
    new_key
    plan '{"entry":"GetPinInfo","remove":"before"}'
    finding key problem 'no such key|removed'
}

test_last_PIN_try_is_a_warning_and_a_locked_PIN_a_problem() {
    new_key
    ends 0 diagnose
    expect_matches "tries" 'PIN +[0-9]+ of [0-9]+ tries are left' "$(<out)"
    local tries
    for ((tries = $(sed -nE 's/.*PIN +([0-9]+) of .*/\1/p' out); tries > 1; --tries)); do
        KESTA_SOFTKEY_PIN=000000 ukey pin verify 2>/dev/null && fail "the PIN is right"
    done
    finding key.pin warning '1 of [0-9]+ tries are left'
    expect_matches "remedy" 'ukey pin verify --serial CLI00001' "$(<out)"
    ukey pin verify --serial CLI00001 >/dev/null
    finding key.pin fine 'tries are left'
    for ((tries = 20; tries > 0; --tries)); do
        KESTA_SOFTKEY_PIN=000000 ukey pin verify >/dev/null 2>&1 || true
    done
    finding key.pin problem 'the PIN is locked'
    expect_matches "remedy" 'softkey unlock CLI00001' "$(<out)"
    softkey unlock CLI00001 >/dev/null
    finding key.pin fine 'tries are left'
}

# certificate FROM UNTIL: a signing certificate of that time on the key, as GNU date reads it.
certificate() {
    local form=+%Y%m%d%H%M%SZ
    ukey request -g sign:sm2:sm3 --pem -o sign.csr >/dev/null
    mkdir -p issued
    : >index
    printf '%s\n' '[ca]' default_ca=d '[d]' database=index new_certs_dir=issued policy=p \
        default_md=sm3 rand_serial=yes '[p]' commonName=supplied >ca.cnf
    openssl ca -batch -config ca.cnf -cert ca.pem -keyfile ca.key -sigopt "$identity" \
        -vfyopt "$identity" -startdate "$(date -u -d "$1" $form)" -enddate "$(date -u -d "$2" $form)" \
        -in sign.csr -out sign.pem -notext 2>said || fail "$(<said)"
    ukey import sign.pem >/dev/null
}

test_certificates_that_end_soon_or_have_ended_are_told() {
    new_key
    make_authority
    certificate '1 day ago' '400 days'
    finding key.certificate fine 'until 2'
    certificate '1 day ago' '29 days'
    finding key.certificate warning 'ends on .*, in 2[89] days'
    certificate '3 days ago' '1 hour ago'
    finding key.certificate problem 'ended on '
    certificate '2 days' '400 days'
    finding key.certificate-begin problem 'is not valid before '
    # What the remedy says begins to mend it.
    certificate '1 day ago' '1 hour ago'
    finding key.certificate problem 'ukey request -g sign:sm2:sm3 --pem -o new.csr'
    ukey request -g sign:sm2:sm3 --pem -o new.csr >/dev/null
    openssl req -in new.csr -noout -verify -vfyopt "$identity" 2>/dev/null || fail "no request"
}

test_key_without_certificates_says_so() {
    new_key
    finding key.certificate fine 'none on the key'
}

run_claims "$@"
