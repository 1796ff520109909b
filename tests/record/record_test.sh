#!/usr/bin/env bash
# Recording, showing and replaying, with the software key and without any.
# shellcheck source=tests/ukey/support.bash
. "$(dirname "$(readlink -f "$0")")/../ukey/support.bash"

# record ARGUMENT...: where the software key is.
record() { in_sandbox "$ukey_command" record -o case.rec "$@"; }

# replay ARGUMENT...: where no key is, and none can be: a home without keys, nothing installed.
replay() { KESTA_SOFTKEY_HOME=$scratch/none bare replay "$@"; }

shown() { bare trace show --json case.rec; }

# count FILTER: how many lines of the recording it selects.
count() { shown | jq -c "select($1)" | wc -l; }

test_a_client_behaves_as_without_it() {
    new_key
    ukey info >plain
    record -- "$ukey_command" info >recorded
    expect_same_lines "the output differs" plain recorded
    expect_equal "exit status" 0 "$?"
}

test_both_boundaries_are_recorded() {
    new_key
    record -- "$ukey_command" info >/dev/null
    (($(count '.boundary == "exports" and .function == "GetLabel"') >= 1)) || fail "no export"
    local parent
    parent=$(shown | jq 'select(.function == "GetLabel" and .boundary == "token") | .parent')
    expect_equal "the function above" '"GetLabel"' \
        "$(shown | jq "select(.call == $parent) | .function")"
    expect_equal "libraries" 3 "$(count '.library')"
}

test_a_linked_client_is_recorded() {
    new_key
    record -- "$KESTA_BIN/enrol" CLI00001 >/dev/null 2>&1 || true
    (($(count '.boundary == "exports"') > 0)) || fail "$(bare trace show case.rec)"
}

test_the_exit_status_is_passed_on() {
    ends 7 record -- sh -c 'exit 7'
    ends 143 record -- sh -c 'kill -TERM $$'
    ends 127 record -- "$scratch/absent"
    touch plain
    ends 126 record -- "$scratch/plain"
}

test_cancelled_threads_end_as_without_it() {
    new_key
    in_sandbox "$KESTA_BIN/cancelled_client" >plain
    expect_equal "without" "behind the call: cancelled, in the wait: cancelled, behind the call: cancelled, stop: 0" \
        "$(paste -sd, plain | sed 's/,/, /g')"
    record -- "$KESTA_BIN/cancelled_client" >recorded
    expect_same_lines "recorded" plain recorded
    expect_equal "waits" cancelled "$(shown | jq -r 'select(.function == "WaitForKeyEvent") | .ended')"
    expect_equal "versions" "returned returned" \
        "$(shown | jq -r 'select(.function == "GetDllVersion") | .ended' | xargs)"
    replay case.rec -- "$KESTA_BIN/cancelled_client" >replayed
    expect_same_lines "replayed" plain replayed
}

test_timed_events_come_when_they_came() {
    local began took
    new_key
    # shellcheck disable=SC2016
    record --full -- sh -c '"$0" wait --timeout 60 & waiter=$!
        until [ -s /tmp/ValtoPinpad_KESTA.log ]; do sleep 0.05; done
        sleep 1; "$1" remove >/dev/null; wait "$waiter"' "$ukey_command" "$KESTA_BIN/softkey" >recorded
    took=$(shown | jq 'select(.function == "WaitForKeyEvent" and .ended == "returned") | .duration_ms | floor' | head -n 1)
    ((took >= 900)) || fail "the event came at once: after $took ms"
    began=$(date +%s%N)
    replay --timed case.rec -- "$ukey_command" wait --timeout 60 >replayed
    (($(date +%s%N) - began >= took * 1000000 - 100000000)) || fail "the event came early"
    expect_same_lines "timed" recorded replayed
    replay case.rec -- "$ukey_command" wait --timeout 60 >replayed
    expect_same_lines "at once" recorded replayed
}

# Neither does a wait that goes on when the difference is found keep the client.
test_waits_beyond_the_recording_are_stopped_or_a_difference() {
    need python3
    new_key
    cat >client.py <<'TEXT'
import ctypes, sys, threading, time
library = ctypes.CDLL(sys.argv[1])
waits, label, stops = int(sys.argv[2]), sys.argv[3], sys.argv[4:] == ["stop"]
length, kind, media = ctypes.c_uint(17), ctypes.c_uint(), ctypes.create_string_buffer(17)
name, room = ctypes.create_string_buffer(512), ctypes.c_int(512)
ended = threading.Event()
def wait():
    for _ in range(waits):
        print(library.WaitForKeyEvent(ctypes.byref(kind), media, ctypes.byref(length)), kind.value, flush=True)
    ended.set()
library.Initialize()
threading.Thread(target=wait).start()
time.sleep(0.5)
print(library.GetLabel(label.encode(), name, ctypes.byref(room)), flush=True)
while stops and not ended.is_set():
    library.StopDetectUKey()
    time.sleep(0.1)
ended.wait()
print("over")
TEXT
    record --full -- python3 client.py "$KESTA_CLIENT_LIBRARY" 1 CLI00001 stop >recorded
    expect_equal "recorded" "0 0 3 over" "$(xargs <recorded)"
    ends 0 replay case.rec -- python3 client.py "$KESTA_CLIENT_LIBRARY" 2 CLI00001 stop
    expect_equal "another wait, stopped" "0 0 3 0 3 over" "$(xargs <out)"
    ends 20 replay case.rec -- timeout 30 python3 client.py "$KESTA_CLIENT_LIBRARY" 1 CLI00002 stop
    expect_matches "difference elsewhere" 'szSN was recorded as "CLI00001"' "$(<err)"
    expect_equal "its end" over "$(tail -n 1 out)"
    record --full -- python3 client.py "$KESTA_CLIENT_LIBRARY" 0 CLI00001 >recorded
    ends 20 replay case.rec -- timeout 30 python3 client.py "$KESTA_CLIENT_LIBRARY" 1 CLI00001
    expect_matches "a thread of its own" 'WaitForKeyEvent' "$(<err)"
    expect_equal "its end" over "$(tail -n 1 out)"
}

test_several_processes_make_one_recording() {
    new_key
    record -- sh -c '"$0" info & "$0" info; wait; "$0" label get' "$ukey_command" >/dev/null
    expect_equal "processes" 3 "$(count '.pid')"
    expect_equal "labels read by export" 3 \
        "$(count '.boundary == "exports" and .function == "GetLabel"')"
}

test_a_recording_does_not_take_another_files_place() {
    echo precious >case.rec
    ends 9 record -- true
    expect_equal "the file" precious "$(<case.rec)"
    expect_matches "message" 'case.rec exists and is no recording' "$(<err)"
}

test_what_cannot_be_written_is_told_before_the_command_runs() {
    ends 9 bare record -o /proc/case.rec -- touch "$scratch/ran"
    [[ ! -e ran ]] || fail "the command ran"
    expect_matches "message" '/proc/case.rec' "$(<err)"
}

# A disk that fills up while a client runs: the recording takes one step of 256 KiB, the next does
# not fit.
test_a_full_disk_leaves_the_client_alone() {
    need bwrap
    new_key
    mkdir disk
    # shellcheck disable=SC2016
    in_sandbox bwrap --dev-bind / / --size 307200 --tmpfs "$scratch/disk" -- sh -c '
        "$0" record -o "$1/disk/case.rec" -- sh -c '\''
            for ten in 1 2 3 4 5 6 7 8 9 10 11 12; do
                for n in 1 2 3 4 5 6 7 8 9 10; do "$0" info || exit 1; done
            done'\'' "$0" "$1" >"$1/seen" 2>"$1/said"
        echo $? >"$1/status"
        "$0" trace show "$1/disk/case.rec" >"$1/shown"' "$ukey_command" "$scratch"
    expect_equal "status" 0 "$(<status)"
    expect_equal "labels" 120 "$(grep -c 'Test key' seen)"
    expect_matches "what is said" 'the recording ends early, there was no room for [0-9]+ records' \
        "$(<said)"
    expect_matches "what is shown" '[0-9]+ records were lost' "$(<shown)"
}

test_what_is_no_recording_is_told() {
    local file
    : >empty
    head -c 3000 /dev/urandom >noise
    new_key
    record -- "$ukey_command" info >/dev/null
    cp case.rec other && printf '\002' | dd of=other bs=1 seek=18 conv=notrunc 2>/dev/null
    head -c 100 case.rec >short
    for file in empty noise absent other short; do
        ends 9 bare trace show "$file"
        ends 9 bare replay "$file" -- touch "$scratch/ran"
        [[ ! -e ran ]] || fail "the command ran with $file"
    done
    expect_matches "message" 'this recording is cut within its head' "$(<err)"
}

test_a_full_recording_replays_without_a_key() {
    new_key
    record --full -- "$ukey_command" info >recorded
    softkey delete CLI00001 >/dev/null 2>&1 || true
    replay case.rec -- "$ukey_command" info >replayed
    expect_same_lines "the output differs" recorded replayed
}

test_a_redacted_recording_replays_its_structure() {
    new_key
    record -- "$ukey_command" info >recorded
    replay case.rec -- "$ukey_command" info >replayed
    expect_equal "lines" "$(wc -l <recorded)" "$(wc -l <replayed)"
    ! grep -q CLI00001 replayed || fail "an identifier was kept"
}

test_a_difference_is_named_and_has_a_status() {
    new_key
    softkey create --serial CLI00002 >/dev/null
    record --full -- "$ukey_command" label get --serial CLI00001 >/dev/null
    ends 20 replay case.rec -- "$ukey_command" label get --serial CLI00002
    expect_matches "message" \
        'call [0-9]+, GetLabel: szSN was recorded as "CLI00001" .*, now it is "CLI00002"' "$(<err)"
    ends 20 replay case.rec -- true
    expect_matches "message" 'was recorded, and the command ended without it' "$(<err)"
    ends 20 replay case.rec -- "$ukey_command" info
}

test_a_tolerant_replay_takes_another_order() {
    new_key
    record --full -- sh -c '"$0" label get; "$0" pin info' "$ukey_command" >/dev/null
    ends 20 replay case.rec -- sh -c '"$0" pin info; "$0" pin info' "$ukey_command"
    ends 0 replay --tolerant case.rec -- sh -c '"$0" pin info; "$0" label get' "$ukey_command"
    expect_matches "label" 'Test key' "$(<out)"
    ends 20 replay --tolerant case.rec -- "$ukey_command" data get unknown-name
}

run_claims "$@"
