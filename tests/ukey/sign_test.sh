#!/usr/bin/env bash
# The ukey command against the software key: signatures, decryption, requests in batches.
# shellcheck source=tests/ukey/support.bash
. "$(dirname "$(readlink -f "$0")")/support.bash"

# verified TEXT SIGNATURE: openssl finds the signature good.
verified() {
    openssl x509 -in sign.pem -noout -pubkey >sign.pub
    printf '%s' "$2" | base64 -d >signature.der
    printf '%s' "$1" | openssl dgst -sm3 -verify sign.pub -sigopt "$identity" \
        -signature signature.der >/dev/null
}

test_sign_makes_a_signature_that_openssl_verifies() {
    enrolled_key
    printf 'pay 12.50' >order.txt
    ends 0 ukey sign order.txt -w 'Pay 12.50?'
    verified 'pay 12.50' "$(<out)"
    expect_equal "screen" "Pay 12.50?" "$(softkey screen --serial CLI00001 2>/dev/null || softkey screen)"
    ends 0 ukey sign -w 'Pay?' --text 'pay 12.50' -o order.sig
    verified 'pay 12.50' "$(<order.sig)"
    printf 'pay 12.50' | shaped '{"ok":"true","signature":"text","serial":"text"}' \
        ukey sign -w 'Pay?' --json
}

test_sign_refused_at_the_button_is_refused() {
    enrolled_key
    softkey button refuse >/dev/null
    fails 5 refused ukey sign --text data -w 'Sign?'
}

test_sign_of_nothing_is_wrong_usage() {
    enrolled_key
    fails 2 usage ukey sign /dev/null
    fails 9 file ukey sign missing.txt
}

test_sign_hash_signs_a_digest() {
    enrolled_key
    local digest
    digest=$(printf 'data' | openssl dgst -sm3 -r | cut -d' ' -f1)
    shaped '{"ok":"true","signature":"text","serial":"text"}' ukey sign-hash --text "$digest" --json
    printf '%s\n' "$digest" | ends 0 ukey sign-hash --form hex
    openssl x509 -in sign.pem -noout -pubkey >sign.pub
    base64 -d out >signature.der
    printf '%s' "$digest" | xxd -r -p >digest.bin
    openssl pkeyutl -verify -pubin -inkey sign.pub -in digest.bin -sigfile signature.der >verdict ||
        fail "$(<verdict)"
    fails 2 usage ukey sign-hash --text abc
}

test_batch_sign_signs_each_text() {
    enrolled_key
    printf one >one
    printf two >two
    printf three >three
    ends 0 ukey batch-sign one two three -w 'Three?'
    expect_equal "lines" 3 "$(wc -l <out)"
    cp out signatures
    verified one "$(sed -n 1p signatures)"
    verified three "$(sed -n 3p signatures)"
    printf 'one\ntwo\n' | shaped '{"ok":"true","serial":"text","signatures":["text"]}' \
        ukey batch-sign --json
    ends 0 ukey batch-sign one
    verified one "$(<out)"
}

test_batch_sign_refuses_a_text_that_would_be_divided() {
    enrolled_key
    printf 'a||b' >divided
    printf 'a' >whole
    fails 2 usage ukey batch-sign whole divided
}

test_decrypt_of_a_foreign_text_fails() {
    enrolled_key
    printf 'bm9uc2Vuc2U=' | fails 1 failed ukey decrypt
    fails 2 usage ukey decrypt /dev/null
}

test_self_test_tries_both_pairs() {
    new_key
    fails 8 not-found ukey self-test
    rm -r key
    enrolled_key
    ends 0 ukey self-test
    expect_matches "signing" 'ok +sign sm2: signs' "$(<out)"
    expect_matches "encryption" 'ok +enc sm2: decrypts' "$(<out)"
    shaped '{"ok":"true","serial":"text","checks":[{"check":"text","ok":"true"}]}' \
        ukey self-test --json
    # A key that signs as another one does.
    echo '{"rules": [{"entry": "GMUSBKeyAsymDec2", "code": "CipherMalformed"}]}' >plan.json
    softkey misbehave plan.json >/dev/null
    ends 1 ukey self-test
    expect_matches "signing" 'ok +sign sm2' "$(<out)"
    expect_matches "encryption" 'failed +enc sm2: .*cannot be decrypted' "$(<out)"
    softkey misbehave --clear >/dev/null
    softkey button refuse >/dev/null
    expected_status=5 shaped '{"ok":"false","serial":"text",
        "checks":[{"check":"text","ok":"boolean","message?":"text","codeText?":"text"}]}' \
        ukey self-test --json
}

test_info_hides_no_failure() {
    enrolled_key
    ends 3 ukey info -s NOPE
    expect_matches "said" 'Label +cannot be read: no such key is present' "$(<out)"
    grep -q 'Certificates *none' out && fail "it looks empty" "$(<out)"
    fails 3 key-absent ukey info -s NOPE
    echo '{"rules": [{"entry": "GetCertInfo", "code": "StateBusy"}]}' >plan.json
    softkey misbehave plan.json >/dev/null
    ends 1 ukey info
    expect_matches "busy" 'Certificate sign sm2 +cannot be read: the key is busy' "$(<out)"
    fails 1 failed ukey info
    # A code that only the maker knows may mean that there is no such certificate.
    echo '{"rules": [{"entry": "GetCertInfo", "code": 4660}]}' >plan.json
    softkey misbehave plan.json >/dev/null
    ends 0 ukey info
    expect_matches "told" 'Certificate sign sm2 +cannot be read: .*0x00001234' "$(<out)"
}

test_batch_request_makes_a_block_of_PEM_of_each_request() {
    new_key
    ends 0 ukey batch-request --pem
    expect_equal "blocks" 2 "$(grep -c 'BEGIN CERTIFICATE REQUEST' out)"
    csplit -sz -f block out '/BEGIN/' '{*}'
    local block
    for block in block0*; do
        openssl req -in "$block" -noout -verify -vfyopt "$identity" 2>verdict || fail "$(<verdict)"
    done
}

test_batch_sign_signs_line_n_as_signature_n() {
    enrolled_key
    printf 'one \ntwo\r\n' >lines
    ends 0 ukey batch-sign --lines lines
    cp out signatures
    verified 'one ' "$(sed -n 1p signatures)"
    verified two "$(sed -n 2p signatures)"
    printf 'one\n\ntwo\n' >gap
    ends 2 ukey batch-sign --lines gap
    expect_matches "said" 'line 2 of gap is empty' "$(<err)"
    printf '\none\n' | fails 2 usage ukey batch-sign
    : >empty
    fails 2 usage ukey batch-sign lines empty
}

test_sign_without_a_warning_shows_what_is_signed() {
    enrolled_key
    ends 0 ukey sign --text 'pay 12.50'
    expect_equal "screen" "Sign: pay 12.50" "$(softkey screen)"
    head -c 5000 /dev/zero | tr '\0' A | ends 0 ukey sign
    expect_matches "screen" '^Sign 5000 bytes: A{60}\.\.\.$' "$(softkey screen)"
    ends 2 ukey sign --text ''
}

test_hint_shows_while_the_key_waits_for_its_button() {
    need script
    enrolled_key
    softkey button ask >/dev/null
    export KESTA_SOFTKEY_HOME=$scratch/key
    TERM=dumb script -qfc "$(printf '%q ' "$KESTA_BIN/ukey-sandbox" --softkey "$KESTA_KEY_BIN" \
        --log "$scratch/library.log" "$ukey_command" sign --text data -w Sign?)" shown >/dev/null &
    local signer=$!
    until_true "the hint shows" grep -q 'The key shows "Sign?". Press its button' shown
    until_true "the button answers" bash -c "'$KESTA_BIN/softkey' button press | grep -q answered"
    wait "$signer" || fail "$(<shown)"
    ends 0 bash -c "'$KESTA_BIN/softkey' button auto"
    ends 0 ukey sign --text data -w 'Sign?'
    expect_equal "no hint in a pipe" "" "$(<err)"
}

run_claims "$@"
