#!/usr/bin/env bash
# The example clients: enrolment, signature and events in C, and the same three through the C++ face.
# ./demo runs those in C once more, with the others.
# shellcheck source=tests/docs/support.bash
. "$(dirname "$(readlink -f "$0")")/support.bash"

# client PROGRAM ARGUMENT...
client() { in_sandbox "$KESTA_BIN/$1" "${@:2}"; }

# What the authority sends back, as text of one line.
one_line() { openssl x509 -in "$1" -outform DER | base64 -w0; }

# enrols PROGRAM: its requests are certified, and it installs the answers.
enrols() {
    softkey create --serial EXAMPLE1 >/dev/null
    make_authority
    client "$1" >requests.txt
    expect_equal "requests" 2 "$(wc -l <requests.txt)"
    sed -n 1p requests.txt | base64 -d | openssl req -inform DER -out sign.csr
    sed -n 2p requests.txt >enc.request
    base64 -d enc.request | openssl req -inform DER -out enc.csr
    answer_requests
    one_line sign.pem >sign.cer
    one_line enc.pem >enc.cer
    client "$1" --import sign.cer enc.key enc.cer >said
    ukey cert get -o sign.onkey
    ukey cert get --type enc -o enc.onkey
    cmp sign.cer <(tr -d '\n' <sign.onkey)
    cmp enc.cer <(tr -d '\n' <enc.onkey)
}

# signs PROGRAM: openssl finds its signature good, and its warning is on the screen.
signs() {
    enrolled_key
    client "$1" 'pay 12.50' 'Pay 12.50 to Ada?' >signature.b64
    openssl x509 -in sign.pem -noout -pubkey >sign.pub
    base64 -d signature.b64 >signature.der
    printf 'pay 12.50' | openssl dgst -sm3 -verify sign.pub -sigopt "$identity" \
        -signature signature.der >verdict || fail "$(<verdict)"
    softkey screen | grep -q 'Pay 12.50 to Ada?' || fail "$(softkey screen)"
}

# follows PROGRAM: it tells of a key that is pulled out and put back, and ends by itself.
follows() {
    softkey create --serial EXAMPLE1 --media-id MEDIA-1 >/dev/null
    client "$1" 2 120 >seen &
    local waiting=$!
    until_true "the client waits" waits_begun 1
    softkey remove >/dev/null
    until_true "the removal is told" has_lines seen 1
    until_true "the client waits again" waits_begun 2
    softkey insert >/dev/null
    wait "$waiting"
    expect_equal "seen" $'removed MEDIA-1\ninserted MEDIA-1' "$(<seen)"
}

# complains PROGRAM ARGUMENT...: without a key it says so and ends with 1.
complains() {
    ends 1 client "$@"
    expect_matches "what $1 says" "^$1: .*\(([0-9]+|0x[0-9A-F]+)\)" "$(<err)"
}

test_C_example_enrols() {
    enrols enrol
}

test_face_example_enrols() {
    enrols enrol_face
}

test_C_example_signs() {
    signs sign
}

test_face_example_signs() {
    signs sign_face
}

test_C_example_follows_removal_and_insertion() {
    follows events
}

test_face_example_follows_removal_and_insertion() {
    follows events_face
}

test_examples_tell_why_they_fail_without_a_key() {
    complains enrol
    complains enrol_face
    complains sign text warning
    complains sign_face text warning
}

test_events_examples_give_up_in_time() {
    new_key
    ends 3 client events 1 1
    ends 3 client events_face 1 1
}

test_examples_have_help_and_refuse_wrong_usage() {
    local example
    for example in enrol enrol_face sign sign_face events events_face; do
        ends 0 client "$example" --help
        expect_matches "help of $example" "^usage: $example" "$(<out)"
        ends 2 client "$example" too many arguments by far and more
        expect_matches "$example" "^usage: $example" "$(<err)"
    done
}

run_claims "$@"
