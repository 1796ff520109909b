#!/usr/bin/env bash
# What ukey gives to a fleet's tools: metrics of doctor, the log's failures in the journal.
# shellcheck source=tests/ukey/log_support.bash
. "$(dirname "$(readlink -f "$0")")/log_support.bash"
# shellcheck source=tests/ukey/doctor_support.bash
. "$(dirname "$(readlink -f "$0")")/doctor_support.bash"

# metric LINE: the metrics in the file out have exactly that sample.
metric() { grep -qxF "$1" out || fail "no sample: $1" "$(<out)"; }

# well_formed FILE: each sample stands below its type; nothing else is there but help and the end.
well_formed() {
    local departures
    departures=$(awk '
        /^# HELP kesta_[a-z_]+ [A-Z1].*\.$/ { help = $3; next }
        /^# TYPE kesta_[a-z_]+ gauge$/ && $3 == help { type = $3; next }
        /^kesta_[a-z_]+(\{([a-z]+="[^"\\]*",?)+\})? -?[0-9]+$/ { name = $0; sub(/[{ ].*/, "", name); if (name == type) next }
        /^# EOF$/ { ended = NR; next }
        { print }
        END { if (ended != NR) print "no end" }' "$1")
    [[ -z $departures ]] || fail "no metrics" "$departures"
}

test_metrics_tell_of_a_key_and_name_no_serial_number() {
    new_key
    ends 0 ukey doctor --openmetrics
    well_formed out
    metric 'kesta_key_present 1'
    metric 'kesta_driver_complete 1'
    metric 'kesta_pin_locked 0'
    metric 'kesta_doctor_findings{severity="problem"} 0'
    metric 'kesta_log_readable 1'
    grep -q CLI00001 out && fail "the serial number is there" "$(<out)"
    ends 0 ukey doctor --openmetrics --with-serial
    well_formed out
    metric 'kesta_key_present{serial="CLI00001"} 1'
    metric 'kesta_doctor_findings{serial="CLI00001",severity="problem"} 0'
    fails 2 usage ukey doctor --with-serial
    fails 2 usage ukey doctor --output kesta.prom
}

test_metrics_tell_when_certificates_end() {
    enrolled_key
    ends 0 ukey doctor --openmetrics
    well_formed out
    metric "kesta_certificate_not_after_timestamp_seconds{type=\"signing\",algorithm=\"SM2\"} $(
        date -d "$(openssl x509 -in sign.pem -noout -enddate | cut -d= -f2)" +%s)"
}

test_metrics_of_a_machine_without_anything() {
    mkdir -p root/tmp
    ends 12 bare doctor --root root --openmetrics
    well_formed out
    metric 'kesta_key_present 0'
    metric 'kesta_driver_complete 0'
    grep -q 'kesta_pin\|kesta_certificate\|kesta_log_failures' out && fail "it knows too much" "$(<out)"
    metric 'kesta_log_readable 1'
}

test_metrics_count_failures_of_the_log_by_function_and_code() {
    healthy_system
    {
        some_log
        some_log
        record 21,09:00:07.000 'Evil"} 1 x{a="' Begin
        record 21,09:00:07.000 'Evil"} 1 x{a="' 'End G_LastError: 00000005'
    } >root/tmp/ValtoPinpad_KESTA.log
    ends 0 diagnose --openmetrics
    well_formed out
    metric 'kesta_log_failures{operation="ChangePin",code="-101"} 2'
    metric 'kesta_log_failures{operation="other",code="0"} 1'
    grep -q GetDllVersion out && fail "it counts successes" "$(<out)"
    rm root/tmp/ValtoPinpad_KESTA.log
    mkdir root/tmp/ValtoPinpad_KESTA.log
    ends 0 diagnose --openmetrics
    metric 'kesta_log_readable 0'
}

test_metrics_file_is_readable_by_all_and_replaced_in_one_step() {
    healthy_system
    umask 077
    ends 0 diagnose --openmetrics --output kesta.prom
    expect_equal "mode" 644 "$(stat -c %a kesta.prom)"
    expect_equal "out" "" "$(<out)"
    well_formed kesta.prom
    exec 5<kesta.prom
    ends 0 diagnose --openmetrics --output kesta.prom
    well_formed /dev/fd/5 # whoever read the old one had all of it
    expect_equal "left behind" kesta.prom "$(echo kesta.prom*)"
    fails 9 file diagnose --openmetrics --output nowhere/kesta.prom
}

# ---- The journal

# with_journal COMMAND...: the command, and what it has sent to the journal's socket in the file
# entries, one datagram to a line. libsystemd sends fields as lines. With $until_sent the command is
# interrupted when it has sent something.
with_journal() {
    need bwrap python3
    cat >journal.py <<'PY'
import os, signal, socket, subprocess, sys
os.makedirs("/run/systemd/journal")
journal = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
journal.bind("/run/systemd/journal/socket")
journal.settimeout(30)
command = subprocess.Popen(sys.argv[1:])
received = []
if os.environ.get("until_sent"):
    received.append(journal.recv(65536))
    command.send_signal(signal.SIGINT)
status = command.wait()
journal.setblocking(False)
while True:
    try:
        received.append(journal.recv(65536))
    except BlockingIOError:
        break
with open("entries", "w") as entries:
    for entry in received:
        entries.write(entry.decode().replace("\n", "|") + "\n")
sys.exit(status)
PY
    bwrap --dev-bind / / --tmpfs /run python3 journal.py "$@"
}

test_failed_calls_reach_the_journal_with_their_fields() {
    { some_log && record 21,09:00:06.000 GetVidAndPid 'End G_LastError: 00005B21'; } >log
    ends 0 with_journal "$ukey_command" log log --journal
    expect_equal "said" "2 failed calls sent to the journal" "$(<out)"
    expect_equal "entries" 2 "$(wc -l <entries)"
    local field
    for field in 'MESSAGE=ChangePin failed: the token library is missing or incomplete \(-101\)' \
        'MESSAGE_ID=[0-9a-f]{32}' PRIORITY=4 SYSLOG_IDENTIFIER=ukey KESTA_OPERATION=ChangePin \
        KESTA_CODE=-101 KESTA_CODE_NUMBER=-101 KESTA_PROCESS=41 KESTA_THREAD=-7 \
        'KESTA_BEGIN=21 09:00:01\.000' 'KESTA_END=21 09:00:04\.500' KESTA_MICROSECONDS=3500000; do
        expect_matches "field" "(^|\|)$field\|" "$(head -n 1 entries)"
    done
    grep -qE 'SECRET|434C49|CLI' entries && fail "it sends more than it should" "$(<entries)"
    ends 0 with_journal "$ukey_command" log log --journal --json --operation GetVidAndPid
    expect_equal "JSON" '{"ok":true,"sent":1}' "$(<out)"
}

test_failures_are_sent_as_they_happen() {
    some_log >log
    # It follows when it has seen what is added.
    (
        while [[ ! -e entries ]]; do
            record 21,10:00:00.000 TestInitUKey Begin
            record 21,10:00:02.000 TestInitUKey 'End G_LastError: 00005B21'
            sleep 0.2
        done
    ) >>log &
    export until_sent=yes
    ends 130 with_journal "$ukey_command" log log --follow --last 0 --journal
    wait
    grep -q KESTA_OPERATION=TestInitUKey entries || fail "$(<entries)"
    grep -q KESTA_OPERATION=ChangePin entries && fail "it sends what was there before" "$(<entries)"
    return 0
}

test_absent_journal_is_told() {
    need bwrap
    some_log >log
    fails 9 file bwrap --dev-bind / / --tmpfs /run "$ukey_command" log log --journal
    expect_matches "why" 'the journal cannot be reached' "$(<out)"
}

run_claims "$@"
