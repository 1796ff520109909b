# What the tests of the ukey command share. The build says where things are: KESTA_BIN, the folder
# of programs; KESTA_KEY_BIN, the software key's libraries.
# shellcheck shell=bash
# shellcheck source=tests/support/commands.bash
. "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/../support/commands.bash"

ukey_command=${KESTA_BIN:?names the folder of programs}/ukey
export KESTA_SOFTKEY_PIN=135790 LC_ALL=C.UTF-8
unset KESTA_SOFTKEY_NEW_PIN NO_COLOR

# The command without any key: for what needs none.
bare() { "$ukey_command" "$@"; }

# The names in the groups of a help.
subcommands() { bare "$@" --help | sed -n '/^Exit status:/q; /^Examples:/q; s/^  \([a-z][a-z-]*\)  .*/\1/p'; }

softkey() { KESTA_SOFTKEY_HOME=$scratch/key "$KESTA_BIN/softkey" "$@"; }

# A command where the software key stands in for the maker's libraries, with a log of its own.
in_sandbox() {
    KESTA_SOFTKEY_HOME=$scratch/key "$KESTA_BIN/ukey-sandbox" --log "$scratch/library.log" \
        --softkey "${KESTA_KEY_BIN:?names the software key}" "$@"
}

ukey() { in_sandbox "$ukey_command" "$@"; }

# until_true WHAT COMMAND...: tries the command for 30 seconds.
until_true() {
    local what=$1 tries
    shift
    for ((tries = 0; tries < 600; ++tries)); do
        ! "$@" || return 0
        sleep 0.05
    done
    fail "waited 30 seconds in vain: $what"
}

# The number of waits for events that have scanned the slots, and see whatever happens from now on.
waits_begun() {
    local seen
    seen=$(cat "$scratch/library.log" 2>/dev/null | grep -c '\[after\]' || true)
    ((seen >= $1))
}

new_key() { softkey create --serial CLI00001 --label 'Test key' >/dev/null; }

failure_shape='{"ok":"false","error":{"kind":"text","message":"text","operation?":"text",
    "code?":"number","codeText?":"text","advice?":"text"}}'

# fails STATUS KIND COMMAND...: it fails with that status and kind, told in JSON.
fails() {
    local kind=$2
    expected_status=$1 shaped "$failure_shape" "${@:3}" --json
    grep -q "\"kind\":\"$kind\"" out || fail "expected the kind $kind" "found: $(<out)"
}

# ---- A certificate authority ---------------------------------------------------------------------

identity=distid:1234567812345678

make_authority() {
    openssl genpkey -algorithm SM2 -out ca.key 2>/dev/null
    openssl req -x509 -new -key ca.key -sm3 -sigopt "$identity" -days 30 -subj "/CN=Test CA" \
        -out ca.pem
}

# issue NAME [DAYS [PUBLIC-KEY]]: NAME.pem from NAME.csr.
issue() {
    local key=()
    if [[ -n ${3:-} ]]; then key=(-force_pubkey "$3"); fi
    openssl x509 -req -in "$1.csr" -CA ca.pem -CAkey ca.key -CAcreateserial -sm3 \
        -sigopt "$identity" -vfyopt "$identity" -days "${2:-20}" -subj "/O=Tests/CN=$1" \
        "${key[@]}" -out "$1.pem" 2>/dev/null
}

# Requests sign.csr and enc.csr of the key, and the one-line enc.request.
make_requests() {
    ukey request -g sign:sm2:sm3 --pem -o sign.csr >/dev/null
    ukey request -g enc:sm2:sm3 -o enc.request >/dev/null
    base64 -d enc.request | openssl req -inform DER -out enc.csr
}

# sign.pem, and enc.pem with the escrowed key enc.key.
answer_requests() {
    issue sign
    openssl genpkey -algorithm SM2 -out enc-pair.key 2>/dev/null
    openssl pkey -in enc-pair.key -pubout -out enc-pair.pub
    issue enc 20 enc-pair.pub
    softkey envelope --to enc.request --pair enc-pair.key --with-header --out enc.key >/dev/null
}

# A key with both certificates.
enrolled_key() {
    new_key
    make_authority
    make_requests
    answer_requests
    ukey import sign.pem >/dev/null
    ukey import enc.pem --key enc.key --json >imported
}
