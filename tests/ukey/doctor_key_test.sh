#!/usr/bin/env bash
# ukey doctor where it asks for the key itself, and whether each of its findings is tested.
# shellcheck source=tests/ukey/doctor_support.bash
. "$(dirname "$(readlink -f "$0")")/doctor_support.bash"

# ---- The key, which is asked where all files are well. The fixtures answer in ways of their own.

# on_machine FOLDER COMMAND...: the machine as it is, with the maker's libraries of that fixture.
on_machine() {
    bwrap --dev-bind / / --tmpfs /opt --dir "/$directory" \
        --ro-bind "$KESTA_FIXTURES/$1" "/$directory" "${@:2}"
}

test_crash_of_the_token_library_is_a_finding() {
    need bwrap
    diagnose() { on_machine complete "$ukey_command" doctor "$@"; }
    finding key problem 'the token library crashed with Aborted'
}

test_token_library_that_hangs_is_a_finding() {
    need bwrap
    diagnose() { on_machine hanging "$ukey_command" doctor --timeout 1 "$@"; }
    finding key problem 'the token library gave no answer in 1 second, asked by Initialize and GetPrintNumber"'
}

test_token_library_that_ends_the_process_is_a_finding() {
    need bwrap
    diagnose() { on_machine leaving "$ukey_command" doctor "$@"; }
    finding key problem 'the token library ended without an answer'
}

test_certificate_that_cannot_be_read_is_told() {
    need bwrap
    diagnose() { on_machine agreeing "$ukey_command" doctor --serial K1 "$@"; }
    finding key.certificate-form warning 'cannot be read'
    expect_matches "key" 'key +K1' "$(<out)"
}

test_library_without_the_functions_is_a_finding() {
    need bwrap
    diagnose() { on_machine complete "$ukey_command" doctor --library libc.so.6 "$@"; }
    finding key problem 'cannot be asked for: .*Initialize.*-101'
}

test_lack_of_descriptors_is_told() {
    need bwrap
    # One descriptor is left, which reads files; asking the key takes two at once.
    diagnose() { on_machine complete bash -c 'exec 3>&-; ulimit -n 4; exec "$@"' bash "$ukey_command" doctor "$@"; }
    finding key problem 'cannot be asked for: Too many open files'
}

test_lack_of_processes_is_told() {
    need bwrap
    local as=()
    if ((EUID == 0)); then as=(setpriv --reuid 65534 --clear-groups); fi
    diagnose() { on_machine complete "${as[@]}" bash -c 'ulimit -u 1; exec "$@"' bash "$ukey_command" doctor "$@"; }
    finding key problem 'cannot be asked for: Resource temporarily unavailable'
}

test_key_is_not_asked_for_when_told_so_or_when_a_file_is_missing() {
    need bwrap
    on_machine complete "$ukey_command" doctor --no-key >out || fail "$(<out)"
    grep -q 'crashed' out && fail "the library was called"
    status=0
    on_machine incomplete "$ukey_command" doctor >out || status=$?
    expect_equal status 12 "$status"
    grep -q 'crashed' out && fail "the library was called"
    return 0
}

# ---- All of it

# What doctor's source can report, with the three libraries' findings spelled out.
reportable() {
    cat "$KESTA_SOURCE"/tools/ukey/doctor/*.cpp | tr '\n' ' ' |
        grep -oE 'report\.(Problem|Warn)\( *(suspect\.id \+ )?"[^"]*"' |
        sed -E 's/report\.Problem\(/problem /; s/report\.Warn\(/warning /; s/ +/ /g; s/"//g' |
        while read -r severity id rest; do
            case "$id $rest" in
                'suspect.id + .entry-points')
                    printf '%s\n' "token-library.entry-points $severity" \
                        "event-library.entry-points $severity"
                    ;;
                'suspect.id + '*)
                    printf '%s\n' "token-library${rest#+ } $severity" \
                        "event-library${rest#+ } $severity" "client-library${rest#+ } $severity"
                    ;;
                *) echo "$id $severity" ;;
            esac
        done | sort -u
}

test_every_finding_that_doctor_can_report_is_seen_by_a_test() {
    reportable >reported
    (($(wc -l <reported) >= 20)) || fail "too few were found in the source" "$(<reported)"
    sed -nE 's/^ +finding ([a-z.-]+) (problem|warning) .*/\1 \2/p' "${claims_script%/*}"/doctor*_test.sh | sort -u >seen
    expect_same_lines "what doctor reports and what is tested differ" reported seen
}

run_claims "$@"
