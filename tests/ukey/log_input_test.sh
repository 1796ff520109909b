#!/usr/bin/env bash
# ukey log on every kind of input: pipes, rewritten and foreign files, long ones; who stops reading
# its output; logs that are replaced while they are followed.
# shellcheck source=tests/ukey/log_support.bash
. "$(dirname "$(readlink -f "$0")")/log_support.bash"

test_log_with_LF_alone_is_read() {
    some_log >log
    bare log log --records >expected
    tr -d '\r' <log >rewritten
    bare log rewritten --records >found
    expect_same_lines "the same calls" expected found
}

test_standard_input_is_read() {
    some_log >log
    bare log log >expected
    local way
    bare log - <log >found
    expect_same_lines "a file on standard input" expected found
    # shellcheck disable=SC2002  # a pipe is what is asked for
    cat log | bare log - >found
    expect_same_lines "a pipe" expected found
    for way in /dev/stdin <(cat log); do
        bare log "$way" <log >found
        expect_same_lines "$way" expected found
    done
    bare log - --last 1 < <(cat log) >found
    expect_same_lines "the last of a pipe" <(tail -n 1 expected) found
    shaped '{"ok":"true","file":"text","strangeBytes":"number","calls":['"$call_shape"']}' \
        bare log - --json <log
}

test_pipe_is_followed_to_its_end() {
    some_log >log
    # shellcheck disable=SC2002
    cat log | ends 0 bare log --follow -
    expect_matches "begun" 'ChangePin +- +begins' "$(<out)"
    expect_matches "over" 'ChangePin +3\.5 s' "$(<out)"
    fails 2 usage bare log --follow --last 1 - <log
}

test_function_that_never_logs_is_told() {
    some_log >log
    fails 2 usage bare log log --operation VerifyPIN
    expect_matches "why" 'VerifyPIN writes nothing to the log; these do: .*ImportEncX509Cert' "$(<out)"
    fails 2 usage bare log log --operation sign --follow
}

test_empty_list_says_why() {
    some_log >log
    ends 0 bare log log --operation Nonsense
    expect_equal "shown" "" "$(<out)"
    expect_matches "why" "none of the log's 3 calls .*these functions write to it: " "$(<err)"
    : >empty
    ends 0 bare log empty
    expect_matches "empty" 'empty is empty' "$(<err)"
    expect_equal "any case" 1 "$(bare log log --operation getdllversion | wc -l)"
}

test_foreign_file_is_told_with_what_to_do() {
    some_log >log
    gzip log
    ends 0 bare log log.gz
    expect_matches "said" 'log\.gz holds no record' "$(<err)"
    # What it says works.
    zcat log.gz | bare log - >found
    expect_equal "calls" 3 "$(wc -l <found)"
    zcat log.gz | iconv -f UTF-8 -t UTF-16 >wide
    ends 0 bare log wide
    expect_matches "said" 'iconv -f UTF-16 -t UTF-8 wide' "$(<err)"
    iconv -f UTF-16 -t UTF-8 wide | bare log - >again
    expect_same_lines "calls" found again
}

test_unreadable_log_is_told_in_every_mode() {
    mkdir folder
    fails 9 file bare log folder
    fails 9 file bare log folder --follow
    some_log >log
    chmod 000 log
    chmod 755 .
    local as=()
    if ((EUID == 0)); then
        need setpriv
        as=(setpriv --reuid 65534 --clear-groups)
    fi
    fails 9 file "${as[@]}" "$ukey_command" log log
    fails 9 file "${as[@]}" "$ukey_command" log log --follow
    expect_matches "why" 'Permission denied' "$(<out)"
}

test_log_that_cannot_be_read_to_its_end_is_no_success() {
    need strace
    fails 9 file bare log /proc/self/mem # where there is no memory
    # A disk that fails behind the first piece.
    long_log 1 >log
    ends 9 strace -o trace -P "$PWD/log" -e trace=pread64 -e inject=pread64:error=EIO:when=2+ \
        "$ukey_command" log log --json
    has_shape '{"ok":"false","file":"text","calls":['"$call_shape"'],
        "error":{"kind":"text","message":"text"}}' out
    expect_matches "why" 'log cannot be read: Input/output error' "$(<out)"
    ends 9 strace -o trace -P "$PWD/log" -e trace=pread64 -e inject=pread64:error=EIO:when=2+ "$ukey_command" log log
}

test_bytes_in_other_charsets_reach_no_terminal_and_leave_JSON_valid() {
    record 21,09:00:00.000 Batch_InitAndGenerateCertRequest \
        "Begin szSN = $(printf '\xd6\xd0\xb9'),requestInfo = 中$(printf '\0')" >log
    record 21,09:00:00.000 Batch_InitAndGenerateCertRequest "$(printf 'x%.0s' {1..119})中文中文中文中文中文中文中文中文" >>log
    bare log log --records >shown
    iconv -f UTF-8 -t UTF-8 shown >/dev/null || fail "not UTF-8" "$(<shown)"
    expect_matches "bytes" 'szSN = \\xD6' "$(<shown)"
    expect_matches "cut between characters" 'x中\.\.\. \(167 characters\)' "$(<shown)"
    shaped '"any"' bare log log --records --json
}

# long_log MEGABYTES: calls of which one never ends, another ends at last.
long_log() {
    local n
    for ((n = 0; n < 500; ++n)); do
        record 21,09:00:01.000 GetPrintNumber 'Begin pnSNLen = 00000400'
        record 21,09:00:01.003 GetPrintNumber 'm_SN: SK00000001'
        record 21,09:00:01.004 GetPrintNumber 'End G_LastError: 00000000'
    done >chunk
    record 21,09:00:00.000 SKF_WaitForDevEvent begin 41 -1
    record 21,09:00:00.000 ChangePin Begin 41 -2
    for ((n = $1 * 1000000 / $(wc -c <chunk); n > 0; --n)); do cat chunk; done
    record 21,09:00:09.000 ChangePin 'End G_LastError: 00000000' 41 -2
}

test_memory_does_not_grow_with_the_log() {
    long_log 30 >log
    (
        ulimit -v 65536
        bare log log --json >all || fail "text: status $?"
        bare log log --json --records --last 2 >last || fail "last: status $?"
    )
    expect_equal "first" SKF_WaitForDevEvent "$(bare log log --records | sed -n 2p | awk '{ print $2 }')"
    expect_equal "begins" '"WaitForKeyEvent"no-end"ChangePin"ended"GetPrintNumber"ended' \
        "$(grep -oE '"operation":"[A-Za-z]+"|"state":"[a-z-]+' all | head -n 6 | sed 's/.*:"/"/' | tr -d '\n' | sed -E 's/""/"/g')"
    expect_equal "the last" 2 "$(grep -o '"operation"' last | wc -l)"
}

test_endless_line_fills_no_memory() {
    # Never a line break, nor a record.
    head -c 150000000 /dev/zero >log
    some_log >>log
    (
        ulimit -v 65536
        ends 0 bare log log
    )
    expect_equal "calls" 3 "$(wc -l <out)"
    expect_matches "told" '150000000 bytes' "$(<err)"
}

test_reader_that_has_seen_enough_ends_it_in_silence() {
    local mode
    long_log 3 >log
    for mode in '' --json --records; do
        # shellcheck disable=SC2086
        { bare log log $mode 2>err && echo 0 >status || echo $? >status; } | head -c 100 >/dev/null
        expect_matches "status" '^(0|141)$' "$(<status)"
        expect_equal "said" "" "$(<err)"
    done
}

test_full_disk_is_told_at_once() {
    long_log 1 >log
    local status=0
    bare log log >/dev/full 2>err || status=$?
    expect_equal "status" 9 "$status"
    expect_matches "said" 'standard output cannot be written: No space left' "$(<err)"
}

# ---- Following

test_follow_shows_the_last_calls_first() {
    some_log >log
    "$ukey_command" log --follow --last 2 log >followed &
    local follower=$!
    awaited 'ImportEncX509Cert'
    grep -q GetDllVersion followed && fail "it shows more" "$(<followed)"
    grep -q ChangePin followed || fail "it shows less" "$(<followed)"
    record 21,10:00:00.000 TestInitUKey Begin >>log
    awaited 'TestInitUKey .*begins'
    kill -INT "$follower"
    wait "$follower" || true
}

test_follow_of_none_of_the_last_shows_new_ones_alone() {
    some_log >log
    "$ukey_command" log --follow --last 0 log >followed &
    local follower=$! calls
    # It is known to follow when it sees what is added.
    for calls in {1..300}; do
        record "21,10:00:00.000" TestInitUKey Begin 41 "$calls" >>log
        ! grep -q TestInitUKey followed || break
        sleep 0.1
    done
    awaited TestInitUKey
    grep -qE 'GetDllVersion|ChangePin' followed && fail "it shows old ones" "$(<followed)"
    kill -INT "$follower"
    wait "$follower" || true
}

test_follow_reads_the_end_of_a_log_that_is_moved_away() {
    record 21,09:00:00.000 GetDllVersion 'Begin x' >log
    "$ukey_command" log --follow log >followed &
    local follower=$!
    awaited GetDllVersion
    kill -STOP "$follower"
    record 21,09:00:01.000 GetDllVersion 'End G_LastError: 00000000' >>log
    mv log old
    record 21,09:00:02.000 ChangePin Begin >>old
    record 21,09:00:03.000 ChangePin 'End G_LastError: 00000000' >log
    kill -CONT "$follower"
    awaited 'ChangePin *1\.0 s *ok'
    grep -q 'GetDllVersion *1\.0 s *ok' followed || fail "a record of the old log is lost" "$(<followed)"
    : >log # cut short in its place
    sleep 0.3
    record 21,10:00:00.000 TestInitUKey Begin >>log
    awaited TestInitUKey
    kill -INT "$follower"
    wait "$follower" || true
}

test_follow_ends_when_nobody_reads() {
    some_log >log
    # It ends at all, and in silence.
    { "$ukey_command" log --follow log 2>err || true; } | head -n 1 >/dev/null
    expect_equal "said" "" "$(<err)"
}

run_claims "$@"
