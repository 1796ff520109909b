#!/usr/bin/env bash
# What ukey says where a key answers as none should, and on machines that few people have.
# shellcheck source=tests/ukey/log_support.bash
. "$(dirname "$(readlink -f "$0")")/log_support.bash"
# shellcheck source=tests/ukey/doctor_support.bash
. "$(dirname "$(readlink -f "$0")")/doctor_support.bash"

# plan RULES: the key misbehaves so from now on.
plan() { echo "{\"rules\":[$1]}" | softkey misbehave - >/dev/null; }

# ---- The key

test_self_test_tells_a_wrong_signature_and_a_wrong_text() {
    enrolled_key
    plan '{"entry":"GMUsbKeyCriticalSign","output":"garbage"},{"entry":"GMUSBKeyAsymDec2","output":"cut"}'
    expected_status=1 shaped '{"ok":"false","serial":"text","checks":[{"check":"text","ok":"false",
        "message":"text"}]}' ukey self-test --json
    expect_equal "messages" "the signature is not the certificate's,another text came out" \
        "$(jq -r '[.checks[].message] | join(",")' out)"
    ends 1 ukey self-test
    expect_equal "failed" 2 "$(grep -c '^failed ' out)"
}

test_self_test_tells_a_certificate_that_nobody_can_use() {
    enrolled_key
    plan '{"entry":"GetCertInfo","output":"cut"}'
    ends 1 ukey self-test
    expect_matches "signature" "the signature is not the certificate's" "$(<out)"
    expect_matches "encryption" 'nothing can be encrypted for the certificate' "$(<out)"
}

test_certificate_cut_short_is_told_everywhere() {
    enrolled_key
    plan '{"entry":"GetCertInfo","output":"cut"}'
    ends 0 ukey cert info
    expect_matches "cert info" 'Certificate +cannot be read' "$(<out)"
    ukey report -o report.zip >/dev/null
    need unzip
    unzip -q report.zip
    grep -qE '<td>cannot be read</td>' ukey-report/report.html || fail "$(<ukey-report/report.html)"
}

test_batch_with_too_few_signatures_is_a_failure() {
    enrolled_key
    plan '{"entry":"Batch_Sign","output":"cut"}'
    printf 'one\ntwo\nthree\n' >lines
    fails 1 failed ukey batch-sign --lines lines -o signatures
    expect_matches "said" 'the key made [12] signatures? of 3 texts' "$(<out)"
    [[ ! -e signatures ]] || fail "they were written"
}

test_certificate_comes_in_a_container_too() {
    new_key
    make_authority
    make_requests
    issue sign
    openssl crl2pkcs7 -nocrl -certfile sign.pem -out sign.p7
    ends 0 ukey import sign.p7
    expect_matches "said" 'on the key: CN=sign,O=Tests, until 20' "$(<out)"
}

test_import_says_which_of_its_options_exclude_each_other() {
    fails 2 usage ukey import FILE --sign-cert sign.cer
    expect_matches "bundle" 'FILE does not go with --sign-cert' "$(<out)"
    fails 2 usage ukey import --key - </dev/null
    expect_matches "input" 'cannot both come from standard input' "$(<out)"
}

# A device that is no key stands in a slot; its arrival is told when the plan is set.
test_wait_tells_an_arrival_that_cannot_be_read() {
    new_key
    ukey wait --timeout 120 >events &
    local waiter=$!
    until_true "ukey waits" waits_begun 1
    echo '{"foreign":[9]}' | softkey misbehave - >/dev/null
    wait "$waiter"
    expect_matches "event" '^inserted +\(media id not known\)  could not be read, 0x0000[0-9A-F]{4}$' "$(<events)"
}

test_slots_of_a_key_that_tells_none_are_a_failure() {
    new_key
    plan '{"entry":"ValtoT_GetSlotList","code":"StateBusy"}'
    ends 1 ukey list
    expect_matches "said" 'ValtoT_GetSlotList: the slots cannot be listed' "$(<err)"
}

test_doctor_tells_that_the_tries_of_the_pin_cannot_be_asked_for() {
    new_key
    diagnose() { ukey doctor "$@"; }
    plan '{"entry":"GetPinInfo","code":"StateBusy"}'
    finding key problem 'it is busy: .* \(0x00005B63\)'
    plan '{"entry":"GetPinInfo","hang":true}'
    diagnose() { ukey doctor --timeout 5 "$@"; }
    finding key problem 'no answer in 5 seconds, asked by GetPinInfo"'
}

# ---- The software key

test_state_whose_keys_are_gone_has_none_to_show() {
    new_key
    softkey delete CLI00001 --yes >/dev/null </dev/null
    ! softkey show 2>told || fail "it was shown"
    expect_matches "said" 'no key was created yet' "$(<told)"
}

# ---- The log

test_failure_in_the_log_is_explained_by_the_key() {
    new_key
    KESTA_SOFTKEY_PIN=000000 ukey pin change 2>/dev/null && fail "the PIN is right"
    cp library.log log
    ends 0 ukey log --failed log
    expect_matches "text" '0x00005B21  the PIN is wrong' "$(<out)"
    ends 0 bare log --failed --library ./nowhere.so log
    expect_matches "code alone" '0x00005B21$' "$(<out)"
}

# Their numbers begin anew, so that the memory that a log takes has an end.
test_threads_of_the_log_are_counted_to_twenty_thousand() {
    record 21,09:00:00.000 GetData Begin 41 THREAD >one
    seq 20001 | while read -r _; do echo; done | awk -v text="$(<one)" '{ t = text; sub("THREAD", NR, t); print t }' >log
    ends 0 bare log log
    expect_equal "numbers" "41/1 41/20000 41/1" \
        "$(sed -nE '1p; 20000p; 20001p' out | grep -oE '41/[0-9]+' | xargs)"
}

test_log_that_cannot_be_followed_is_told() {
    : >file
    fails 9 file bare log --follow file/log
    expect_matches "said" 'file/log cannot be read: Not a directory' "$(<out)"
}

test_hexadecimal_that_is_cut_stays_out_of_the_report() {
    need unzip
    new_key
    record 21,09:00:00.000 szSN: 4144413 >library.log
    ukey report -o report.zip >/dev/null
    unzip -q report.zip
    grep -qE '\[<text-1: 7 characters>\]' ukey-report/log.txt || fail "$(<ukey-report/log.txt)"
}

test_names_on_a_terminal_are_dim_and_without_colour_when_told_so() {
    need script
    some_log >log
    TERM=xterm script -qec "'$ukey_command' log log" /dev/null >shown
    expect_matches "head" $'^\033\\[2mDay and time .*\033\\[0m' "$(head -n 1 shown)"
    grep -q $'\033\\[31m-101\033\\[0m' shown || fail "the failure is not red" "$(<shown)"
    NO_COLOR=1 TERM=xterm script -qec "'$ukey_command' log log" /dev/null >shown
    ! grep -q $'\033\\[[0-9]*m' shown || fail "coloured" "$(<shown)"
}

# ---- The machine

# on_machine WORDS...: with a folder /etc of its own, in which the test's folder etc is.
on_machine() {
    need bwrap
    in_sandbox bwrap --dev-bind / / "$@"
}

test_makers_codes_in_their_place_hold_without_an_option() {
    need bwrap
    new_key
    mkdir kesta
    echo '{"codes": [{"code": "0x5B21", "kind": "not-found"}]}' >kesta/codes.json
    KESTA_SOFTKEY_PIN=000000 fails 8 not-found in_sandbox bwrap --dev-bind / / --tmpfs /etc \
        --ro-bind "$scratch/kesta" /etc/kesta "$ukey_command" pin verify
}

test_report_tells_whose_package_a_library_is() {
    local library
    need unzip
    library=$(ldd "$ukey_command" | sed -nE 's/.* => (.*libc\.so\.6) .*/\1/p')
    dpkg-query --search "$library" >/dev/null || fail "no package brings $library"
    bare report --no-key --full --library "$library" -o report.zip >/dev/null
    unzip -q report.zip
    expect_equal "package" libc6 \
        "$(jq -r --arg file "$library" '.libraries[] | select(.file == $file).package' ukey-report/report.json)"
}

test_report_of_a_system_without_name_and_language() {
    need bwrap unzip
    : >nothing
    bwrap --dev-bind / / --ro-bind nothing "$(readlink -f /etc/os-release)" \
        env -u LC_ALL -u LC_MESSAGES -u LANG "$ukey_command" report --no-key -o report.zip >/dev/null
    unzip -q report.zip
    expect_equal "system and language" "not known C" \
        "$(jq -r '.system | "\(.system) \(.language)"' ukey-report/report.json)"
}

test_report_without_a_log_says_so() {
    need bwrap unzip
    bwrap --dev-bind / / --tmpfs /tmp --bind "$scratch" "$scratch" --bind "${KESTA_BIN%/*}" "${KESTA_BIN%/*}" \
        "$ukey_command" report --no-key -o report.zip >/dev/null
    unzip -q report.zip
    grep -q 'there is no log' ukey-report/report.html || fail "$(<ukey-report/report.html)"
}

test_page_shows_quotation_marks_of_a_remedy() {
    need bwrap unzip
    healthy_system
    bwrap --dev-bind / / --tmpfs /opt --bind "root/opt" /opt --tmpfs /etc/udev "$ukey_command" report \
        --no-key -o report.zip --library "$KESTA_CLIENT_LIBRARY" >/dev/null
    unzip -q report.zip
    grep -qF 'SUBSYSTEM==&quot;usb&quot;' ukey-report/report.html || fail "$(<ukey-report/report.html)"
}

test_remedy_quotes_a_path_for_the_shell() {
    mkdir "the root's"
    cd "the root's"
    healthy_system
    cd ..
    diagnose() { bare doctor --root "the root's/root" "$@"; }
    chmod o+w "the root's/root/$directory"
    finding install-directory.writable problem 'everybody may change'
    mends install-directory.writable 'chmod o-w [^;]*'
}

test_several_warnings_are_worth_a_look() {
    healthy_system
    rm "root/$directory/KeyWarden"
    mkdir root/tmp/ValtoPinpad_KESTA.log
    verdict '; 2 warnings are worth a look\.$'
}

run_claims "$@"
