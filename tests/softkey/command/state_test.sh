#!/usr/bin/env bash
# Envelopes and certificates that leave the key, the state folder.
# shellcheck source=tests/softkey/command/support.bash
. "$(dirname "$(readlink -f "$0")")/support.bash"

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
    [ "$(value_at /envelope | head -c 1)" = M ] || fail "no envelope"
    run 0 envelope --to to.pem --pair pair.pem --out file
    out_is 'envelope written to file'
    [ "$(stat -c %a file)" = 600 ] || fail "the file is not 0600"
}

test_an_envelope_names_what_cannot_be_read() {
    openssl genpkey -algorithm SM2 -out pair.pem 2>/dev/null || fail openssl
    echo nonsense >nonsense
    run 5 envelope --to nonsense --pair pair.pem
    out_is ''
    run 5 envelope --to none --pair pair.pem
    err_is 'softkey: none cannot be read: No such file or directory'
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
    openssl req -x509 -newkey rsa:2048 -nodes -keyout ca-key.pem -subj /CN=Root -out ca.pem \
        2>/dev/null || fail openssl
    openssl req -x509 -newkey rsa:2048 -nodes -keyout key.pem -utf8 -subj '/CN=李伟/O=Kesta' \
        -CA ca.pem -CAkey ca-key.pem -days 30 -set_serial 0x1234 -out cert.pem 2>/dev/null ||
        fail openssl
    openssl x509 -in cert.pem -outform DER -out cert.der
    openssl pkey -in key.pem -pubout -outform DER -out public.der
    hex() { od -An -v -tx1 "$1" | tr -d ' \n'; }
    "$KESTA_BIN/softkey_state_sql" "$KESTA_SOFTKEY_HOME" "INSERT INTO pairs(serial, role, algorithm,
        public_key, wrapped, certificate) VALUES('SK1', 1, 1, x'$(hex public.der)',
        zeroblob(100), x'$(hex cert.der)')" || fail softkey_state_sql
    run 0 show
    out_has 'signing RSA  subject  O=Kesta,CN=李伟'
    out_has 'issuer   CN=Root'
    run 0 show --json
    value_is /pairs/0/role signing
    value_is /pairs/0/certificate/serialNumber 1234
    value_is /pairs/0/certificate/notBefore "$(date -u -d \
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
    KESTA_SOFTKEY_PIN=123456 KESTA_SOFTKEY_HOME=$scratch/file/home run 7 create
}

test_an_output_that_cannot_be_written_is_an_error() {
    local status=0
    "$softkey" path >/dev/full 2>err || status=$?
    expect_equal "status" 7 "$status"
    err_is 'softkey: standard output cannot be written: No space left on device'
}

run_claims "$@"
