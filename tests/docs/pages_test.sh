#!/usr/bin/env bash
# What the pages tell the reader to type works when it is typed: their shell commands are run, their
# clients compiled and run, all against the software key.
# shellcheck source=tests/docs/support.bash
. "$(dirname "$(readlink -f "$0")")/support.bash"

# blocks PAGE LANGUAGE [N]: the contents of the code blocks of that language, or of the Nth alone.
blocks() {
    awk -v fence="\`\`\`$2" -v wanted="${3:-0}" '
        /^```/ { inside = !inside; taken = inside && $0 == fence; count += taken; next }
        taken && (!wanted || count == wanted)' "$source_tree/$1"
}

count_blocks() { grep -cxF "\`\`\`$2" "$source_tree/$1" || true; }

# type_pages PAGE...: what a reader types who follows these pages, one after the other, in one shell.
type_pages() {
    local page
    for page in "$@"; do
        [[ -n $(blocks "docs/$page" sh) ]] || fail "$page has no commands"
        blocks "docs/$page" sh
    done >typed
    in_sandbox bash -euxo pipefail typed >said 2>trace ||
        fail "a command of $* failed" "$(tail -n 15 trace)"
}

# compile_block PAGE LANGUAGE PROGRAM: its client, with all warnings as errors.
compile_block() {
    local warnings=(-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)
    blocks "$1" "$2" >"$3.$2"
    [[ -s $3.$2 ]] || fail "$1 has no client in $2"
    if [[ $2 == c ]]; then
        "${CC:?}" -std=c11 "${warnings[@]}" -I"$source_tree/include" "$3.c" -o "$3" \
            -L"$build/lib" -lkesta_unified_zrkukey -Wl,-rpath-link,"$build/import"
    else
        "${CXX:?}" -std=c++17 "${warnings[@]}" -I"$source_tree/include" "$3.cpp" -o "$3" -pthread -ldl
    fi
}

# run_client PAGE LANGUAGE: what its client prints is in the file printed.
run_client() {
    compile_block "docs/$1" "$2" client
    in_sandbox ./client >printed 2>complaint || fail "the client of $1 failed" "$(<complaint)"
}

is_request() {
    base64 -d <<<"$1" | openssl req -inform DER -noout -verify -vfyopt "$identity" 2>verdict
    grep -q OK verdict || fail "this is no request" "$1"
}

# verified TEXT SIGNATURE: by the certificate in sign.pem.
verified() {
    openssl x509 -in sign.pem -noout -pubkey >verifier.pub
    base64 -d <<<"$2" >signature.der
    printf '%s' "$1" | openssl dgst -sm3 -verify verifier.pub -sigopt "$identity" \
        -signature signature.der >/dev/null || fail "the signature is not one of: $1"
}

test_every_code_block_is_known_here() {
    local page
    cd "$source_tree"
    for page in README.md \
        docs/{enrol,install-certificates,sign,decrypt,events,diagnose,log-format,ci,record-and-replay,recording-format}.md; do
        echo "$page sh $(count_blocks "$page" sh) c $(count_blocks "$page" c)" \
            "cpp $(count_blocks "$page" cpp) fences $(grep -c '^```' "$page")"
    done >"$scratch/found"
    cat >"$scratch/known" <<'TEXT'
README.md sh 4 c 0 cpp 0 fences 8
docs/enrol.md sh 3 c 1 cpp 1 fences 10
docs/install-certificates.md sh 3 c 0 cpp 1 fences 8
docs/sign.md sh 2 c 1 cpp 1 fences 8
docs/decrypt.md sh 1 c 1 cpp 1 fences 6
docs/events.md sh 2 c 0 cpp 1 fences 6
docs/diagnose.md sh 4 c 0 cpp 0 fences 8
docs/log-format.md sh 0 c 0 cpp 0 fences 2
docs/ci.md sh 2 c 0 cpp 0 fences 4
docs/record-and-replay.md sh 4 c 0 cpp 0 fences 8
docs/recording-format.md sh 0 c 0 cpp 0 fences 0
TEXT
    cd "$scratch"
    expect_same_lines "a block came or went; run it here too" known found
}

test_enrol_page_ends_with_requests_in_files() {
    type_pages enrol.md
    is_request "$(<sign.request)"
    is_request "$(<enc.request)"
    # openssl ends with 0 for a bad signature too.
    openssl req -in rsa.csr -noout -verify 2>verdict
    grep -q OK verdict || fail "the RSA request is not signed by its key" "$(<verdict)"
    expect_matches "subject of the request" 'subject=CN ?= ?SK0001' "$(<said)"
}

test_enrol_pages_clients_print_requests() {
    type_pages enrol.md
    run_client enrol.md c
    is_request "$(sed 's/||.*//' printed)"
    is_request "$(sed 's/.*||//' printed)"
    run_client enrol.md cpp
    expect_equal "lines" 2 "$(wc -l <printed)"
    is_request "$(sed -n 2p printed)"
}

test_install_page_ends_with_certificates_on_the_key() {
    type_pages enrol.md install-certificates.md
    expect_matches "both are shown" 'Certificate sign sm2 .* Certificate enc sm2 ' \
        "$(tr '\n' ' ' <said)"
    cmp <(openssl x509 -in sign.pem -outform DER) <(openssl x509 -in sign.onkey -outform DER)
    run_client install-certificates.md cpp
    expect_equal "the name on the key" "CN=SK0001" "$(<printed)"
}

test_sign_page_ends_with_a_verified_signature() {
    type_pages enrol.md install-certificates.md sign.md
    expect_matches "the last word" 'Verified OK$' "$(<said)"
    run_client sign.md c
    verified 'pay 12.50' "$(<printed)"
    run_client sign.md cpp
    verified 'pay 12.50' "$(sed -n 1p printed)"
    verified one "$(sed -n 2p printed)"
    verified two "$(sed -n 3p printed)"
}

test_decrypt_page_ends_with_the_letter() {
    type_pages enrol.md install-certificates.md decrypt.md
    cmp letter.txt opened.txt
    run_client decrypt.md c
    expect_equal "letter" "a letter" "$(<printed)"
    run_client decrypt.md cpp
    expect_equal "letter" "a letter" "$(<printed)"
}

test_record_page_ends_with_a_replay() {
    new_key
    type_pages record-and-replay.md
    [[ -s case.html && -s case.jsonl && -s report.zip ]] || fail "nothing was written"
    expect_matches "the replayed label" 'Test key$' "$(<said)"
}

# The page has one terminal for the wait and one for the key.
test_events_pages_wait_sees_what_its_other_terminal_does() {
    new_key
    blocks docs/events.md sh 1 >first
    blocks docs/events.md sh 2 >second
    in_sandbox bash -eu first >seen &
    local waiting=$!
    until_true "ukey waits" waits_begun 1
    KESTA_SOFTKEY_HOME=$scratch/key bash -eu second
    wait "$waiting"
    expect_equal "seen" "removed inserted" "$(cut -d' ' -f1 seen | xargs)"
}

test_events_pages_client_tells_of_events_until_enter_is_pressed() {
    compile_block docs/events.md cpp client
    new_key
    mkfifo keyboard
    in_sandbox ./client <keyboard >seen &
    local waiting=$!
    exec 9>keyboard
    until_true "the client waits" waits_begun 1
    softkey remove >/dev/null
    until_true "the removal is told" has_lines seen 1
    until_true "the client waits again" waits_begun 2
    softkey insert >/dev/null
    until_true "the insertion is told" has_lines seen 2
    echo >&9
    wait "$waiting"
    expect_equal "seen" "removed inserted" "$(cut -d' ' -f1 seen | xargs)"
}

test_diagnose_pages_commands_answer() {
    type_pages enrol.md install-certificates.md diagnose.md
    expect_matches "doctor" 'all [0-9]+ entry points found' "$(<said)"
    expect_matches "keys" '1 +KM[0-9]+ +SK0001' "$(<said)"
    expect_matches "the pairs tried" 'ok +sign sm2: signs.* enc sm2: decrypts' "$(tr '\n' ' ' <said)"
    expect_matches "code" 'the output buffer is too small' "$(<said)"
    expect_matches "the token library's code" 'the PIN is wrong' "$(<said)"
    expect_matches "calls" 'GetPrintNumber +<?[0-9]+ ms +ok' "$(<said)"
    expect_matches "records" 'm_SN: SK0001' "$(<said)"
}

# The page's reader has the client of README in the folder.
test_ci_pages_tests_are_green_and_then_red() {
    mkdir tree
    ln -s "$source_tree/examples" tree/
    cp "$KESTA_BIN/enrol" tree/client
    blocks docs/ci.md sh >typed
    (cd tree && bash -euxo pipefail ../typed >../said 2>../trace) || fail "$(tail -n 15 trace)"
    expect_equal "what the tests say" \
        "ok ok in FAILED red," "$(sed 's/ .*//' said | xargs)"
    expect_matches "why" 'FAILED +the client makes requests' "$(<said)"
    expect_matches "what the client says" 'enrol: .*\(23314\)' "$(<trace)"
}

test_log_pages_record_is_one_for_ukey_log() {
    blocks docs/log-format.md '' | sed 's/$/\r/' >example.log
    ends 0 bare log example.log --records
    expect_equal "bytes of no record" "" "$(<err)"
    expect_matches "the call" 'ChangePin .* -101 ' "$(<out)"
    expect_matches "its time" '^21 09:00:04\.500  4711/1' "$(<out)"
}

# A source tree with a build, as README's reader has it. What builds it does nothing but say so, since
# the build is done, and the sandbox keeps the log out of /tmp.
make_tree() {
    mkdir -p tree/tools tree/build/try/bin programs
    ln -s "$source_tree"/{include,examples} tree/
    cp -a "$build"/{lib,import} tree/build/
    ln -s "$build"/bin/{ukey,softkey} tree/build/try/bin/
    ln -s "$build"/{lib,import} tree/build/try/
    program tree/build/try/bin/ukey-sandbox "exec '$KESTA_BIN/ukey-sandbox' --log '$scratch/library.log' \"\$@\""
    program tree/tools/install-packages "echo \"install-packages \$*\" >>'$scratch/built'"
    program programs/cmake "echo \"cmake \$*\" >>'$scratch/built'"
}

# program FILE TEXT
program() {
    printf '#!/bin/sh\n%s\n' "$2" >"$1"
    chmod +x "$1"
}

test_README_takes_a_client_from_source_to_its_first_answer() {
    make_tree
    { blocks README.md sh 2 && blocks README.md sh 3 && blocks README.md sh 4; } >typed
    cd tree
    PATH=$scratch/programs:/usr/local/bin:/usr/bin:/bin \
        KESTA_SOFTKEY_HOME=$scratch/key bash -eux ../typed >../said 2>../trace ||
        fail "$(tail -n 15 ../trace)"
    cd ..
    is_request "$(tail -n 1 said)"
    cat >expected <<'TEXT'
install-packages build
cmake -S . -B build
cmake --build build --target kesta_unified_zrkukey
install-packages build demo
cmake -S . -B build/try -DKESTA_BUILD_SOFTKEY=ON -DKESTA_BUILD_TOOLS=ON
cmake --build build/try --parallel NUMBER
TEXT
    sed -i 's/--parallel [0-9]\+$/--parallel NUMBER/' built
    expect_same_lines "what README has built" expected built
    expect_matches "ukey" 'Key +SK0001' "$(<said)"
    # With the maker's libraries at their place it needs no sandbox and no variable.
    "$source_tree/tests/support/in-namespace" "$KESTA_KEY_BIN" "$scratch" \
        env KESTA_SOFTKEY_HOME="$scratch/key" tree/client >plainly
    is_request "$(tail -n 1 plainly)"
}

# make starts as many compilers as there are files when --parallel stands alone.
test_no_page_builds_without_a_limit() {
    if grep -rnE --include='*.md' -- '(--parallel|-j)( *$| +[^0-9" ])' "$source_tree"/{README.md,docs,bench,fuzz,packaging} >found; then
        fail "a page builds without a limit" "$(<found)"
    fi
}

run_claims "$@"
