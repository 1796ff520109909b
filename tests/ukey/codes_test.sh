#!/usr/bin/env bash
# A maker's table of codes: the exit statuses that it gives, and what is no such table.
# shellcheck source=tests/ukey/support.bash
. "$(dirname "$(readlink -f "$0")")/support.bash"

set_up() { new_key; }

# status_of CODE [OPTION]...: what ukey would end with.
status_of() {
    ends 0 ukey error --json "$@"
    value_at /exitStatus
}

test_without_a_file_the_software_keys_codes_are_known() {
    expect_equal "PIN wrong" 4 "$(status_of 0x5B21)"
    expect_equal "button refused" 5 "$(status_of 0x5B31)"
    expect_equal "data not found" 8 "$(status_of 0x5B51)"
    expect_equal "in no table" 1 "$(status_of 0x1234)"
}

test_a_makers_file_takes_the_place_of_the_software_keys_codes() {
    cat >codes.json <<'JSON'
{"codes": [{"first": -2199, "last": -2100, "kind": "not-found"}, {"code": -2104, "kind": "pin-locked"},
    {"code": "0x80100069", "kind": "removed"}, {"code": -101, "kind": "refused"}]}
JSON
    expect_equal "a range" 8 "$(status_of -2100 --codes codes.json)"
    expect_equal "a later row" 4 "$(status_of -2104 --codes codes.json)"
    expect_equal "the same bits" 3 "$(status_of 0x80100069 --codes codes.json)"
    expect_equal "the software key's" 1 "$(status_of 0x5B21 --codes codes.json)"
    expect_equal "the library's own" 7 "$(status_of -101 --codes codes.json)"
}

test_a_failure_ends_with_the_status_of_the_table() {
    echo '{"codes": [{"code": "0x5B21", "kind": "not-found"}]}' >codes.json
    KESTA_SOFTKEY_PIN=000000 fails 8 not-found ukey pin verify --codes codes.json
    KESTA_SOFTKEY_PIN=000000 fails 4 pin ukey pin verify
    KESTA_SOFTKEY_PIN=000000 fails 4 pin \
        ukey pin verify --codes "${KESTA_SOURCE:?}/bindings/softkey-codes.json"
}

# The software key's record, read as if a maker kept the tries at its end.
test_pin_tries_stand_where_the_makers_file_says() {
    echo '{"codes": [], "pinRecord": {"length": 8, "triesLeft": 5, "triesMost": 6, "locked": 7}}' >codes.json
    ends 0 ukey pin info --codes codes.json
    expect_matches "tries" 'Tries +6 of 16 tries are left' "$(<out)"
    ends 0 ukey pin info --json --codes codes.json
    expect_equal "the most" 16 "$(value_at /maxTries)"
    echo '{"codes": []}' >codes.json
    ends 0 ukey pin info --codes codes.json
    expect_equal "nothing is known" "" "$(grep Tries out || true)"
}

# A failure whose kind is known ends `info`; one in no table is shown beside what the key answers.
test_info_ends_with_a_failure_that_the_makers_file_knows() {
    echo '{"rules": [{"entry": "GetCertInfo", "code": "0x1234"}]}' >plan.json
    softkey misbehave plan.json >printed
    ends 0 ukey info
    echo '{"codes": [{"code": "0x1234", "kind": "failed"}]}' >codes.json
    fails 1 failed ukey info --codes codes.json
}

test_what_is_no_such_table_is_refused_with_a_reason() {
    local wrong
    while read -r wrong; do
        echo "$wrong" >codes.json
        fails 9 file ukey error 1 --codes codes.json
        grep -q 'codes.json' out || fail "the file is not named for $wrong" "$(<out)"
    done <<'JSON'
[]
nonsense
{"code": []}
{"codes": [{"code": 1, "kind": "broken"}]}
{"codes": [{"code": 1}]}
{"codes": [{"first": 2, "last": 1, "kind": "failed"}]}
{"codes": [{"code": "x", "kind": "failed"}]}
{"codes": [{"code": 4294967296, "kind": "failed"}]}
{"codes": [{"code": true, "kind": "failed"}]}
{"codes": [], "pinRecord": {"length": 8}}
JSON
    fails 9 file ukey error 1 --codes nowhere.json
}

run_claims "$@"
