#!/usr/bin/env bash
# Values planted where confidential things stand are found nowhere in a recording, nor in what is made
# of it: not as they are, nor in another writing.
# shellcheck source=tests/ukey/support.bash
. "$(dirname "$(readlink -f "$0")")/../ukey/support.bash"

# Each in plain ASCII, so that UTF-8 and GB18030 write it alike.
serial=CANARYSN01 label='Canary label' data='canary data value' text='canary text to sign'
warning='canary on the screen' subject='Canary Subject' plain='canary plain text'

# writings VALUE: as hexadecimal, Base64 at each of the three positions, and both UTF-16.
writings() {
    printf '%s' "$1" | xxd -p | tr -d '\n'
    echo
    printf '%s' "$1" | xxd -p -u | tr -d '\n'
    echo
    local lead encoded
    for lead in '' x xx; do
        encoded=$(printf '%s%s' "$lead" "$1" | base64 -w0)
        # Characters that depend on what stands beside the value are left out.
        echo "${encoded:4:$((${#encoded} / 4 * 4 - 8))}"
    done
}

# absent_from FILE...: none of the values, in any writing.
absent_from() {
    local value writing file coding
    for value in "$serial" "$label" "$data" "$text" "$warning" "$subject" "$plain" "$key_text" \
        "$host"; do
        [[ -n $value ]] || fail "an empty canary"
        for file in "$@"; do
            ! grep -qaF -- "$value" "$file" || fail "$file holds $value"
            while IFS= read -r writing; do
                [[ -z $writing ]] || ! grep -qaF -- "$writing" "$file" ||
                    fail "$file holds $value as $writing"
            done < <(writings "$value")
            for coding in UTF-16LE UTF-16BE; do
                writing=$(printf '%s' "$value" | iconv -t "$coding" | xxd -p | tr -d '\n')
                ! xxd -p "$file" | tr -d '\n' | grep -qF "$writing" ||
                    fail "$file holds $value in $coding"
            done
        done
    done
}

# With a name of its own.
issue() {
    local key=()
    if [[ -n ${3:-} ]]; then key=(-force_pubkey "$3"); fi
    openssl x509 -req -in "$1.csr" -CA ca.pem -CAkey ca.key -CAcreateserial -sm3 \
        -sigopt "$identity" -vfyopt "$identity" -days 20 -subj "/O=$subject/CN=$1" \
        "${key[@]}" -out "$1.pem" 2>/dev/null
}

# plant [OPTION]: records a client that uses everything that is planted.
plant() {
    host=$(uname -n)
    ((${#host} > 3)) || host=$scratch  # a name like "vm" is found in any file
    softkey create --serial "$serial" --label "$label" >/dev/null
    make_authority
    make_requests
    answer_requests
    key_text=$(head -c 200 enc.key | tail -c 90)
    printf '%s' "$plain" >plain.txt
    openssl pkeyutl -encrypt -pubin -inkey enc-pair.pub -in plain.txt | base64 -w0 >cipher.txt
    cat >client.sh <<'TEXT'
"$1" import sign.pem
"$1" import enc.pem --key enc.key
"$1" cert dn
"$1" cert get
"$1" label set "$5 again"
"$1" label set "$5"
"$1" data set canary-data --value "$2"
"$1" data get canary-data
"$1" sign --text "$3" --warning "$4"
"$1" decrypt cipher.txt
TEXT
    in_sandbox "$ukey_command" record "$@" -o case.rec -- sh -e client.sh "$ukey_command" "$data" \
        "$text" "$warning" "$label" >said 2>&1 || fail "$(<said)"
    grep -qF "$plain" said || fail "nothing was decrypted" "$(<said)"
}

test_a_recording_holds_no_canary() {
    plant
    (($(bare trace show --json case.rec | grep -c '"call"') > 10)) || fail "nothing was recorded"
    bare trace show case.rec >case.txt
    bare trace show --json case.rec >case.jsonl
    bare trace show --html case.html case.rec
    absent_from case.rec case.txt case.jsonl case.html
}

test_the_search_finds_what_a_full_recording_holds() {
    plant --full
    if (absent_from case.rec) 2>/dev/null; then fail "the search found nothing"; fi
    local value
    for value in "$serial" "$label" "$data" "$text" "$warning" "$plain"; do
        grep -qaF -- "$value" case.rec || fail "the full recording lacks $value"
    done
    ! grep -qaF -- "$key_text" case.rec || fail "the full recording holds the escrowed key"
}

run_claims "$@"
