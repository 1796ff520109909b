#!/usr/bin/env bash
# The ukey command against the software key: PIN, enrolment, certificates, what it says and hides.
# shellcheck source=tests/ukey/support.bash
. "$(dirname "$(readlink -f "$0")")/support.bash"

certificate_shape='{"subject":"text","issuer":"text","serialNumber":"text","notBefore":"text",
    "notAfter":"text","daysLeft":"number"}'

test_info_shows_library_and_key() {
    new_key
    ends 0 ukey info
    expect_matches "library" 'Library +9\.2025\.0731\.3' "$(<out)"
    expect_matches "key" 'Key +CLI00001' "$(<out)"
    expect_matches "label" 'Label +Test key' "$(<out)"
    expect_matches "certificates" 'Certificates +none' "$(<out)"
}

test_info_lists_certificates_with_their_ends() {
    enrolled_key
    ends 0 ukey info
    expect_matches "signing" 'Certificate sign sm2 +CN=sign,O=Tests; until .*(19|20) days left' "$(<out)"
    shaped '{"ok":"true","libraryVersion":"text","driverVersion":"text","vendor":"text",
        "usbId":"text","serial":"text","label":"text","certificates":[{"type":"text",
        "keyType":"text","subject":"text","issuer":"text","serialNumber":"text",
        "notBefore":"text","notAfter":"text","daysLeft":"number"}]}' ukey info --json
    expect_equal "certificates" 2 "$(grep -o daysLeft out | wc -l)"
}

test_info_without_a_key_tells_the_library_and_fails() {
    ends 3 ukey info
    expect_matches "library" 'Library +9\.2025' "$(<out)"
    expect_matches "complaint" 'ukey: GetPrintNumber: no such key is present \(0x00005B11\)' "$(<err)"
    fails 3 key-absent ukey info
}

test_pin_verify_tells_right_from_wrong() {
    new_key
    ends 0 ukey pin verify
    expect_equal "said" "the PIN is right" "$(<out)"
    shaped '{"ok":"true","serial":"text"}' ukey pin verify --json
    KESTA_SOFTKEY_PIN=000000 fails 4 pin ukey pin verify
}

test_pin_change_changes_the_PIN() {
    new_key
    KESTA_SOFTKEY_NEW_PIN=975310 shaped '{"ok":"true","serial":"text"}' ukey pin change --json
    fails 4 pin ukey pin verify
    KESTA_SOFTKEY_PIN=975310 ends 0 ukey pin verify
}

test_pin_info_shows_the_record() {
    new_key
    shaped '{"ok":"true","serial":"text","record":"text","triesLeft":"number","maxTries":"number",
        "locked":"false","caching":"false","minLength":"number","maxLength":"number"}' \
        ukey pin info --json
    expect_matches "record" '"record":"0606[0-9A-F]{12}"' "$(<out)"
    ends 0 ukey pin info
    expect_matches "text" 'PIN record +0606' "$(<out)"
    expect_matches "words" 'Tries +6 of 6 tries are left' "$(<out)"
    expect_matches "in Chinese too" '6 .*6' "$(in_sandbox env LC_ALL=zh_CN.UTF-8 "$ukey_command" pin info | grep -v record)"
}

test_wrong_PIN_tells_how_many_tries_are_left() {
    new_key
    export KESTA_SOFTKEY_PIN=000000
    ends 4 ukey pin verify
    expect_matches "advice" '5 of 6 tries are left' "$(<err)"
    KESTA_SOFTKEY_NEW_PIN=975310 fails 4 pin ukey pin change
    expect_matches "advice" '"advice":"4 of 6 tries are left"' "$(<out)"
    ends 4 ukey pin cache
    ends 4 ukey label set x
    ends 4 ukey sign --text x
    expect_matches "advice" '1 of 6 tries is left' "$(<err)"
    ends 4 ukey pin verify
    ends 4 ukey pin verify
    expect_matches "advice" 'locked, no try is left' "$(<err)"
}

test_pin_cache_verifies_or_switches() {
    new_key
    shaped '{"ok":"true","serial":"text"}' ukey pin cache --json
    KESTA_SOFTKEY_PIN=000000 fails 4 pin ukey pin cache
    shaped '{"ok":"true","serial":"text","caching":"true"}' ukey pin cache --on --json
    shaped '{"ok":"true","serial":"text","caching":"false"}' ukey pin cache --off --json
    fails 2 usage ukey pin cache --on --off
}

test_pin_forget_needs_no_PIN() {
    new_key
    KESTA_SOFTKEY_PIN='' shaped '{"ok":"true"}' ukey pin forget --json
}

test_init_asks_and_without_a_terminal_wants_yes() {
    enrolled_key
    ends 2 ukey init </dev/null
    expect_matches "advice" 'confirm with --yes' "$(<err)"
    expect_matches "kept" 'Certificate sign' "$(ukey info)"
    KESTA_SOFTKEY_NEW_PIN=975310 shaped '{"ok":"true","serial":"text"}' ukey init --yes --json
    expect_matches "gone" 'Certificates +none' "$(ukey info)"
}

test_init_takes_no_for_an_answer() {
    need script
    new_key
    printf 'n\n' | KESTA_SOFTKEY_HOME=$scratch/key script -qec "'$KESTA_BIN/ukey-sandbox' \
        --log '$scratch/library.log' --softkey '$KESTA_KEY_BIN' '$ukey_command' init" /dev/null \
        >out && fail "it succeeded"
    expect_matches "asked" 'Initialise the key CLI00001\?.*\[y/N\]' "$(<out)"
    expect_matches "refused" 'nothing was done' "$(<out)"
}

test_request_makes_one_for_each_purpose() {
    new_key
    ends 0 ukey request
    expect_equal "lines" 2 "$(wc -l <out)"
    sed -n 1p out | base64 -d | openssl req -inform DER -noout -verify -vfyopt "$identity" 2>verdict
    expect_matches "signature" 'OK' "$(<verdict)"
    shaped '{"ok":"true","serial":"text","requestInfo":"text","requests":["text"]}' \
        ukey request --json
}

test_request_writes_PEM_to_a_private_file() {
    new_key
    ends 0 ukey request -g sign:rsa:sha256 --pem -o request.pem
    expect_equal "said" "1 request written to request.pem" "$(<out)"
    openssl req -in request.pem -noout -verify 2>verdict || fail "$(<verdict)"
    expect_equal "mode" 600 "$(stat -c %a request.pem)"
}

test_request_takes_numbers_and_raw_information() {
    new_key
    shaped '{"ok":"true","serial":"text","requestInfo":"text","requests":["text"]}' \
        ukey request -g 1:2:3 --json
    grep -q '"requestInfo":"CertType(1)KeyType(2)HashType(3)"' out || fail "$(<out)"
    ends 0 ukey request --info 'CertType(1)KeyType(2)HashType(3)'
}

test_request_refuses_what_would_raise_an_exception() {
    new_key
    fails 2 usage ukey request --info CertType
    fails 2 usage ukey request -g sign:sm2
    fails 2 usage ukey request -g sign:des:sm3
}

test_batch_request_folds_the_companion() {
    new_key
    shaped '{"ok":"true","serial":"text","requestInfo":"text","requests":["text"]}' \
        ukey batch-request --json
    expect_equal "requests" 1 "$(grep -o '"MI' out | wc -l)"
}

test_batch_request_initialises_only_when_confirmed() {
    enrolled_key
    ends 2 ukey batch-request --init </dev/null
    expect_matches "kept" 'Certificate sign' "$(ukey info)"
    ends 0 ukey batch-request --init --yes
    expect_matches "gone" 'Certificates +none' "$(ukey info)"
}

test_import_takes_PEM_DER_and_Base64() {
    new_key
    make_authority
    make_requests
    answer_requests
    openssl x509 -in sign.pem -outform DER -out sign.der
    base64 -w0 sign.der >sign.txt
    base64 -w64 sign.der | sed 's/$/\r/' >sign-lines.txt
    local file
    for file in sign.pem sign.der sign.txt sign-lines.txt; do
        ends 0 ukey import "$file"
        expect_matches "said of $file" 'on the key: CN=sign,O=Tests, until 20' "$(<out)"
    done
    ends 0 ukey import <sign.pem
}

test_import_of_an_escrowed_key_makes_decryption_work() {
    enrolled_key
    has_shape '{"ok":"true","serial":"text","imported":"text","certificate":'"$certificate_shape}" \
        imported
    printf 'a letter' | openssl pkeyutl -encrypt -certin -inkey enc.pem | base64 >cipher.txt
    ends 0 ukey decrypt cipher.txt
    expect_equal "plain text" "a letter" "$(<out)"
    expect_equal "bytes" 8 "$(wc -c <out)"
}

test_import_composes_and_reads_bundles() {
    new_key
    make_authority
    make_requests
    answer_requests
    shaped '{"ok":"true","serial":"text","imported":"text"}' \
        ukey import --sign-cert sign.pem --enc-cert enc.pem --enc-key enc.key --json
    expect_matches "both" 'sign sm2.*enc sm2' "$(ukey info | tr '\n' ' ')"
    printf 'SignCert(%s)' "$(openssl x509 -in sign.pem -outform DER | base64 -w0)" >bundle.txt
    ends 0 ukey import --bundle bundle.txt
    printf 'Other(x)' | ends 2 ukey import --bundle
}

test_import_refuses_what_would_end_the_process() {
    new_key
    head -c 1025 /dev/zero | tr '\0' A >long.key
    printf 'A' >some.cer
    fails 2 usage ukey import some.cer --key long.key
    expect_matches "reason" '1025 characters' "$(<out)"
    printf 'EncPriKey(%s)' "$(<long.key)" >bundle.txt
    fails 2 usage ukey import --bundle bundle.txt
}

test_import_of_a_strangers_certificate_fails() {
    new_key
    make_authority
    fails 1 failed ukey import ca.pem
    fails 9 file ukey import missing.pem
    fails 2 usage ukey import /dev/null
}

test_cert_get_gives_back_what_was_imported() {
    enrolled_key
    ends 0 ukey cert get --pem
    openssl x509 -in out -outform DER | cmp - <(openssl x509 -in sign.pem -outform DER)
    ends 0 ukey cert get --type enc -o enc.onkey
    base64 -d enc.onkey | cmp - <(openssl x509 -in enc.pem -outform DER)
    shaped '{"ok":"true","certificate":"text"}' ukey cert get --json
    shaped '{"ok":"true","output":"text"}' ukey cert get --json -o other
}

test_cert_get_of_none_is_not_found() {
    new_key
    fails 8 not-found ukey cert get
    fails 3 key-absent ukey cert get --serial NOSUCHKEY
}

test_cert_dn_names_the_holder() {
    enrolled_key
    ends 0 ukey cert dn
    expect_matches "name" 'CN ?= ?sign' "$(<out)"
    shaped '{"ok":"true","dn":"text"}' ukey cert dn --type enc --json
}

test_cert_info_shows_dates_and_days_left() {
    enrolled_key
    ends 0 ukey cert info
    expect_matches "subject" 'Subject +CN=sign,O=Tests' "$(<out)"
    expect_matches "end" 'Valid until +20[0-9-]+, (19|20) days left' "$(<out)"
    shaped '{"ok":"true","serial":"text","type":"text","keyType":"text",
        "recordLength?":"number","certificate":'"$certificate_shape}" ukey cert info --json
}

test_cert_info_tells_an_expired_certificate() {
    new_key
    make_authority
    make_requests
    openssl x509 -req -in sign.csr -CA ca.pem -CAkey ca.key -CAcreateserial -sm3 -days -1 \
        -sigopt "$identity" -vfyopt "$identity" -subj "/CN=old" -out old.pem 2>/dev/null
    ukey import old.pem >/dev/null
    expect_matches "end" 'Valid until .*expired' "$(ukey cert info)"
}

test_cert_delete_asks_and_deletes() {
    enrolled_key
    ends 2 ukey cert delete --type enc </dev/null
    shaped '{"ok":"true","serial":"text","type":"text","keyType":"text"}' \
        ukey cert delete --type enc --yes --json
    fails 8 not-found ukey cert get --type enc
    ends 0 ukey cert get
}

test_no_secret_is_printed() {
    enrolled_key
    ukey pin verify >all 2>&1
    ukey info --json >>all 2>&1
    ukey sign --text x -w 'Sign?' >>all 2>&1
    cat imported >>all
    ukey log --records --json >>all 2>&1
    grep -qF "$KESTA_SOFTKEY_PIN" all && fail "the PIN was printed"
    grep -qF "$(tail -c 60 enc.key | tr -d '\n')" all && fail "the escrowed key was printed"
    return 0
}

test_log_shows_the_calls_that_were_made() {
    new_key
    ukey info >/dev/null
    KESTA_SOFTKEY_NEW_PIN=975310 ukey pin change >/dev/null
    ends 0 bare log library.log
    expect_matches "identity" 'GetPrintNumber +<?[0-9]+ ms +ok' "$(<out)"
    expect_matches "change" 'ChangePin +[0-9.]+ m?s +ok' "$(<out)"
}

test_doctor_finds_the_software_key() {
    new_key
    ends 0 ukey doctor
    expect_matches "entry points" 'token library +all [0-9]+ entry points found' "$(<out)"
    expect_matches "entry points" 'event library +all 5 entry points found' "$(<out)"
    expect_matches "key" 'key +CLI00001' "$(<out)"
}

test_doctor_without_a_key_has_a_finding() {
    ends 12 ukey doctor
    expect_matches "key" 'problem +key +no such key is present' "$(<out)"
}

run_claims "$@"
