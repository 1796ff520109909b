#!/usr/bin/env bash
# The demonstration, with the programs of this build. KESTA_SOURCE is the source tree, KESTA_BUILD
# the build folder.
# shellcheck source=tests/support/claims.bash
. "$(dirname "$(readlink -f "$0")")/../support/claims.bash"

source_tree=${KESTA_SOURCE:?names the source tree}
build=${KESTA_BUILD:?names the build folder}

demo() { "$source_tree/demo" --build "$build" --folder "$PWD/folder"; }

# An openssl in front of the real one: SHELL-CODE runs first, with openssl's arguments.
tamper_with_openssl() {
    need openssl
    mkdir programs
    printf '#!/usr/bin/env bash\n%s\nexec %q "$@"\n' "$1" "$(command -v openssl)" >programs/openssl
    chmod +x programs/openssl
    PATH=$PWD/programs:$PATH
}

# fails_at STEP REASON: the demonstration ends with status 1 and says both.
fails_at() {
    local status=0
    demo >said 2>&1 || status=$?
    expect_equal "exit status" 1 "$status"
    grep -qF "FAILED at: $1" said || fail "expected to fail at: $1" "$(tail -n 5 said)"
    grep -qE "$2" said || fail "expected the reason: $2" "$(tail -n 5 said)"
}

test_everything_holds_and_only_the_folder_remains() {
    mkdir home elsewhere
    cd elsewhere
    HOME=$PWD/../home "$source_tree/demo" --build "$build" --folder ../folder >../said
    cd ..
    expect_matches "the closing line" "All of it held\..*$PWD/folder" "$(tail -n 1 said)"
    expect_equal "the home folder" "" "$(ls -A home)"
    expect_equal "the current folder" "" "$(ls -A elsewhere)"
    [[ -s folder/library.log ]] || fail "the library's log is not in the folder"
}

test_folder_that_is_not_empty_is_refused() {
    mkdir folder
    touch folder/file
    fails_at "Looking for packages" "folder is not empty"
}

test_authority_that_cannot_be_made_is_named() {
    tamper_with_openssl '[[ $* != *genpkey* ]] || { echo no entropy today >&2; exit 9; }'
    fails_at "openssl becomes a certificate authority" 'no entropy today|ended with status 9'
}

test_request_with_a_bad_signature_is_named() {
    tamper_with_openssl \
        '[[ $* != *"req -inform DER"*-verify* ]] || { echo self-signature verify failure >&2; exit 0; }'
    fails_at "The authority verifies each request" 'signature of the request .* is not good'
}

test_certificate_of_another_key_is_named() {
    tamper_with_openssl \
        '[[ $* != "x509 -inform DER"*-pubkey* ]] || { echo another key; exit 0; }'
    fails_at "Does the certificate on the key belong to the request" 'public keys differ'
}

test_signature_that_fits_any_text_is_named() {
    tamper_with_openssl '[[ $* != dgst*-verify* ]] || exit 0'
    fails_at "openssl verifies the signature" 'a changed text passes for signed'
}

test_signature_that_fits_no_text_is_named() {
    tamper_with_openssl '[[ $* != dgst*-verify* ]] || exit 1'
    fails_at "openssl verifies the signature" 'ended with status 1'
}

test_key_that_is_not_there_is_named_with_its_message() {
    tamper_with_openssl \
        '[[ $* != req*-x509* ]] || KESTA_SOFTKEY_HOME=$PWD/key "$KESTA_BUILD/bin/softkey" remove'
    fails_at "A client asks the key for two certificate requests" '\([0-9]+\)$'
}

run_claims "$@"
