#!/usr/bin/env bash
# ukey report: what is in it, what is not, and what becomes of it where something is missing.
# shellcheck source=tests/ukey/log_support.bash
. "$(dirname "$(readlink -f "$0")")/log_support.bash"
# shellcheck source=tests/ukey/doctor_support.bash
. "$(dirname "$(readlink -f "$0")")/doctor_support.bash"

most=1048576 # bytes of an archive

# unpacked [FILE]: into the folder ukey-report.
unpacked() {
    need unzip
    rm -rf ukey-report
    unzip -q "${1:-report.zip}" || fail "no archive: ${1:-report.zip}"
}

# of_report FILTER: of report.json.
of_report() { jq -r "$1" ukey-report/report.json; }

# verdict_of PAGE: its last line of text.
verdict_of() { sed -n 's|^<p class="verdict">\(.*\)</p>.*$|\1|p' "$1" | tail -n 1; }

answer_shape='{"ok":"true","dryRun":"boolean","masked":"boolean","files":[{"name":"text","bytes":"number",
    "what":"text"}],"bytes":"number","verdict":"text","output?":"text"}'
report_shape='{"format":"text","formatVersion":"number","made":"text","masked":"boolean","verdict":"text",
    "problems":"number","warnings":"number",
    "findings":[{"id":"text","severity":"text","subject":"text","detail":"text","remedy?":"text"}],
    "key?":{"serial":"text","pin?":{"triesLeft":"number","maxTries":"number","locked":"boolean"},
        "certificates":[{"pair":"text","subject?":"text","issuer?":"text","serialNumber?":"text",
            "notBefore?":"text","notAfter?":"text","daysLeft?":"number"}]},
    "failures":[{"operation":"text","process":"number","thread":"number","begin?":"text","end?":"text",
        "microseconds?":"number","code":"number","codeText":"text","kind":"text","message":"string"}],
    "processes":[{"process":"number","first":"text","last":"text","calls":"number","failed":"number"}],
    "log":{"file":"text","bytes":"number","read":"number","strangeBytes?":"number","fault?":"text"},
    "recording?":{"made":"text","programs":[{"program":"text","process":"number","machine":"text",
        "calls":"number","failed":"number"}]},
    "system":{"ukey":"text","system":"text","kernel":"text","processor":"text","glibc":"text",
        "language":"text","timeZone":"text"},
    "libraries":[{"id":"text","file":"text","bytes":"number","sha256":"text","version?":"text","package?":"text"}],
    "packages":[{"name":"text","version":"text","architecture":"text","state":"text"}]}'

test_archive_holds_what_is_promised() {
    enrolled_key
    KESTA_SOFTKEY_PIN=000000 ukey pin change 2>/dev/null && fail "the PIN is right"
    shaped "$answer_shape" ukey report -o report.zip --json
    jq -r '.files[].name' out >told
    unpacked
    zipinfo -1 report.zip | sed 's|^ukey-report/||' >held
    expect_same_lines "files" told held
    expect_equal "first" report.html "$(head -n 1 held)"
    expect_equal "modes" 600 "$(stat -c %a report.zip ukey-report/* | sort -u)"
    has_shape "$report_shape" ukey-report/report.json
    has_shape "$shape" ukey-report/doctor.json
    expect_equal "ends" "$(for one in sign enc; do
        date -u -d "$(openssl x509 -in $one.pem -noout -enddate | cut -d= -f2)" +%FT%TZ
    done)" "$(of_report '.key.certificates[].notAfter')"
    expect_equal "tries" 5 "$(of_report .key.pin.triesLeft)"
    expect_equal "last failure" "ChangePin pin" "$(of_report '.failures[-1] | "\(.operation) \(.kind)"')"
    expect_equal "hash" "$(sha256sum <"$KESTA_KEY_BIN/libKestaZRK.so" | cut -d' ' -f1)" \
        "$(of_report '.libraries[] | select(.id == "token-library").sha256')"
    expect_equal "version" "$(ukey info --json | jq -r .libraryVersion)" \
        "$(of_report '.libraries[] | select(.id == "client-library").version')"
    expect_equal "the C library's package" "$(dpkg-query -W -f '${Version}' libc6:"$(dpkg --print-architecture)")" \
        "$(of_report ".packages[] | select(.name == \"libc6\" and .architecture == \"$(
            dpkg --print-architecture)\").version")"
    bare log --failed ukey-report/log.txt >failed
    expect_matches "the log, read again" 'ChangePin .* 0x00005B21' "$(<failed)"
}

test_one_value_has_one_name() {
    enrolled_key
    ukey report -o report.zip >said
    unpacked
    expect_equal "the key" serial-1 "$(of_report .key.serial)"
    expect_equal "the finding" serial-1 "$(of_report '.findings[] | select(.id == "key").detail')"
    expect_matches "the log" '\[m_SN: serial-1\]' "$(<ukey-report/log.txt)"
    # Both certificates have one issuer and two subjects.
    expect_equal "issuers and subjects" "1 2" \
        "$(of_report '[.key.certificates[].issuer] | unique | length') $(
            of_report '[.key.certificates[].subject] | unique | length')"
    ! grep -rqE 'CLI00001|Tests|Test CA' ukey-report said || fail "a name was kept"
    ! grep -q "$(head -c 300 enc.key | tail -c 60)" -r ukey-report || fail "a key text was kept"
    ukey report --full -o full.zip >/dev/null
    unpacked full.zip
    expect_equal "with --full" CLI00001 "$(of_report .key.serial)"
    ! grep -q "$(head -c 300 enc.key | tail -c 60)" -r ukey-report || fail "a key text was kept"
}

test_last_line_is_the_verdict_everywhere() {
    local said
    new_key
    ukey report -o report.zip >said
    unpacked
    said=$(tail -n 1 said)
    expect_equal "verdict" "All is well: the key serial-1 answers." "$said"
    expect_equal "JSON" "$said" "$(of_report .verdict)"
    expect_equal "page" "$said" "$(verdict_of ukey-report/report.html)"
    expect_equal "last of the page" "</html>" "$(tail -n 1 ukey-report/report.html)"
    softkey remove >/dev/null
    ends 0 ukey report -o report.zip
    expect_matches "without a key" '^1 problem.*remedy for the key\.$' "$(tail -n 1 out)"
    unpacked
    expect_equal "no key" null "$(of_report .key)"
}

test_dry_run_lists_what_goes_in_and_writes_nothing() {
    new_key
    ukey info >/dev/null
    ukey report -o report.zip --json | jq -c '.files | map(.name)' >written
    rm report.zip
    shaped "$answer_shape" ukey report --dry-run -o report.zip --json
    expect_equal "files" "$(<written)" "$(jq -c '.files | map(.name)' out)"
    ends 0 ukey report --dry-run
    expect_equal "lines" "$(jq length written)" "$(grep -cE '^[a-z]+\.[a-z]+ +[0-9]+ ' out)"
    expect_matches "said" 'nothing was written' "$(<out)"
    [[ ! -e report.zip ]] || fail "something was written"
    fails 2 usage ukey report
}

# Where nothing at all is installed, and nobody has ever called: the report is for such machines.
test_machine_without_anything_gets_a_report() {
    need bwrap
    ends 0 bwrap --dev-bind / / --tmpfs /opt --tmpfs /tmp --bind "$scratch" "$scratch" \
        --ro-bind "${KESTA_BIN%/*}" "${KESTA_BIN%/*}" --chdir "$scratch" "$ukey_command" report -o report.zip
    unpacked
    has_shape "$report_shape" ukey-report/report.json
    expect_matches "finding" 'No such file' \
        "$(of_report '.findings[] | select(.id == "install-directory").detail')"
    expect_equal "log" "there is no log" "$(of_report .log.fault)"
    expect_equal "its records" 0 "$(wc -c <ukey-report/log.txt)"
}

test_output_that_cannot_be_written_is_told_and_nothing_is_left() {
    need bwrap
    new_key
    mkdir folder closed disk
    fails 9 file ukey report -o folder
    fails 9 file ukey report -o nowhere/report.zip
    fails 9 file ukey report -o /dev/full
    echo earlier >disk-file
    # shellcheck disable=SC2016
    in_sandbox bwrap --dev-bind / / --size 4096 --tmpfs "$scratch/disk" -- sh -c '
        echo earlier >"$1/disk/report.zip"; status=0
        "$0" report -o "$1/disk/report.zip" >"$1/out" 2>"$1/err" || status=$?
        echo "$status $(ls -A "$1/disk") $(cat "$1/disk/report.zip")"' "$ukey_command" "$scratch" >seen
    expect_equal "on a full disk" "9 report.zip earlier" "$(<seen)"
    expect_matches "message" 'report.zip cannot be written: No space left' "$(<err)"
    echo earlier >report.zip
    ends 0 ukey report -o report.zip
    unpacked
    ends 0 ukey report -o - </dev/null
    cp out piped.zip
    unpacked piped.zip
    fails 2 usage ukey report --json -o -
}

test_recording_goes_along_unless_it_is_full() {
    new_key
    in_sandbox "$ukey_command" record -o case.rec -- "$ukey_command" info >/dev/null
    in_sandbox "$ukey_command" record --full -o full.rec -- "$ukey_command" info >/dev/null
    ukey report -o report.zip --trace case.rec >/dev/null
    unpacked
    cmp case.rec ukey-report/recording.rec
    expect_equal "program" ukey "$(of_report '.recording.programs[].program')"
    fails 2 usage ukey report -o other.zip --trace full.rec
    ends 0 ukey report -o other.zip --trace full.rec --full
    rm other.zip
    echo no recording >noise
    fails 9 file ukey report -o other.zip --trace noise
    fails 9 file ukey report -o other.zip --trace absent
    # Too large, and too large when it is packed.
    cp case.rec sparse.rec
    truncate -s 100M sparse.rec
    fails 9 file ukey report -o other.zip --trace sparse.rec
    { cat case.rec && head -c 1200000 /dev/urandom; } >large.rec
    fails 9 file ukey report -o other.zip --trace large.rec
    expect_matches "message" 'large.rec makes the report larger than 1 MiB' "$(<out)"
    [[ ! -e other.zip ]] || fail "something was written"
}

# Ninety-nine megabytes of calls, with key texts among them that do not pack.
test_large_log_makes_a_small_report_in_time() {
    local TIMEFORMAT='%U %S' spent
    new_key
    ukey list >/dev/null
    for _ in {1..40}; do
        record 21,09:00:01.000 ChangePin Begin
        record 21,09:00:04.500 ChangePin 'End G_LastError: FFFFFF9B'
        record 21,09:00:05.000 'CZRKUSBKey::ImportEncX509Cert  strPriKeyTemp:' \
            "strPriKeyTemp:$(head -c 30000 /dev/urandom | base64 -w0)"
    done >piece
    record 21,09:00:06.000 ChangePin Begin >begin
    {
        for _ in {1..62}; do cat piece; done
        for _ in {1..8000}; do echo begin; done | xargs cat
        tail -n 2 piece
    } >>library.log
    (($(stat -c %s library.log) > 99000000)) || fail "the log is small"
    # Of the processor's time: how long it takes beside other programs is their doing.
    { time ukey report -o report.zip >/dev/null 2>said; } 2>spent
    spent=$(tail -n 1 spent | awk '{ print int(($1 + $2) * 1000) }')
    ((spent > 0 && spent < 5000)) || fail "it took $spent ms" "$(<said)"
    (($(stat -c %s report.zip) < most)) || fail "it is too large" "$(zipinfo report.zip)"
    unpacked
    expect_equal "failures" 50 "$(of_report '.failures | length')"
    expect_equal "read" 4194304 "$(of_report .log.read)"
    (($(stat -c %s ukey-report/log.txt) < 400000)) || fail "too much of the log is in it"
    expect_matches "key text" '<text-[0-9]+: 40014 characters>' "$(tail -n 1 ukey-report/log.txt)"
}

# Anything may write to the log, and anybody may put something else in its place.
test_what_the_library_did_not_write_stays_out_of_the_report() {
    new_key
    {
        record 21,09:00:00.000 ChangePin 'pay 4711 to Ada'
        record 21,09:00:00.000 Intruder 'End G_LastError: 00000001'
        record 21,09:00:00.000 'SKF_WaitForDevEvent of Ada' begin
        record 21,09:00:00.000 GetPrintNumber 'm_SN: ADA000001'
        record 21,09:00:00.000 szSN: 414441303030303031
        record 21,09:00:00.000 Batch_InitAndGenerateCertRequest \
            'Begin szSN = ADA000001,requestInfo = CertType(1)KeyType(2)HashType(3)|CertType(3)'
        record 21,09:00:00.000 Batch_InitAndGenerateCertRequest \
            'Begin szSN = ADA000001,requestInfo = CertType(1) for Ada'
        record 21,09:00:00.000 Batch_InitAndGenerateCertRequest 'Begin szSN = AD,A,requestInfo = '
        echo 'Ada is in no record'
    } >library.log
    ukey report -o report.zip >/dev/null
    unpacked
    ! grep -rqiE 'ada|Intruder|414441' ukey-report || fail "it stayed" "$(grep -rihE 'ada|Intruder' ukey-report)"
    expect_equal "one serial number" 4 "$(grep -c 'serial-2' ukey-report/log.txt)"
    grep -qF 'requestInfo = CertType(1)KeyType(2)HashType(3)|CertType(3)]' ukey-report/log.txt
    rm library.log
    mkfifo pipe
    ends 0 timeout 20 bwrap --dev-bind / / --tmpfs /tmp --bind "$scratch" "$scratch" \
        --ro-bind "${KESTA_BIN%/*}" "${KESTA_BIN%/*}" --bind "$scratch/pipe" /tmp/ValtoPinpad_KESTA.log "$ukey_command" report --no-key -o "$scratch/report.zip"
    unpacked
    expect_equal "log" "the log is no plain file" "$(of_report .log.fault)"
}

test_everything_that_the_library_writes_but_keys_is_readable_in_the_report() {
    enrolled_key
    KESTA_SOFTKEY_NEW_PIN=135790 ukey pin change >/dev/null
    ukey batch-request >/dev/null
    ukey wait --timeout 0.1 >/dev/null 2>&1 || true
    softkey remove >/dev/null
    ukey info >/dev/null 2>&1 || true
    softkey insert >/dev/null
    KESTA_SOFTKEY_NEW_PIN=135790 ukey init --yes >/dev/null
    cp library.log before
    ukey report -o report.zip >/dev/null
    unpacked
    expect_equal "records" "$(grep -c '(Process is' before)" "$(grep -c '(Process is' ukey-report/log.txt)"
    grep -F '<' ukey-report/log.txt | grep -v 'text-[0-9]*: [0-9]* characters' && fail "hidden"
    expect_equal "hidden" "$(grep -c 'strPriKeyTemp:.*(Process' ukey-report/log.txt)" "$(grep -c '<' ukey-report/log.txt)"
}

# On a machine called so, by somebody called so.
test_whose_machine_it_is_stays_untold() {
    need bwrap
    new_key
    mkdir -p home/Grace/margaret-pc/barbara "home/lib of Barbara"
    cp "$KESTA_CLIENT_LIBRARY" home/Grace/margaret-pc/barbara/
    {
        cat /etc/passwd
        echo "barbara:x:4711:4711::$scratch/home/lib of Barbara:/bin/sh"
    } >passwd
    # shellcheck disable=SC2016
    LOGNAME=hopper HOME=$scratch/home/Grace LD_LIBRARY_PATH="$scratch/home/lib of Barbara:/home/liskov/lib" \
        in_sandbox bwrap --dev-bind / / --unshare-user --unshare-uts --hostname margaret-pc.bank.example \
        --ro-bind "$scratch/passwd" /etc/passwd -- sh -c '"$0" "$@" --library "$HOME/margaret-pc/barbara/libkesta_unified_zrkukey.so"' \
        "$ukey_command" report -o "$scratch/report.zip" >said
    unpacked
    ! grep -rqiE 'grace|barbara|hopper|margaret|liskov' ukey-report said ||
        fail "it is told" "$(grep -rihoE '.{40}(grace|barbara|hopper|margaret|liskov).{20}' ukey-report said)"
    jq -r '.paths[]' ukey-report/doctor.json >paths
    grep -q '^home-[0-9]/host-[0-9]/user-[0-9]/libkesta' paths || fail "no path below a home folder" "$(<paths)"
}

run_claims "$@"
