#!/usr/bin/env bash
# What the tests of commands lean on is itself seen to notice.
# shellcheck source=tests/support/commands.bash
. "$(dirname "$(readlink -f "$0")")/commands.bash"

departs() {
    if (shaped "$1" printf '%s' "$2") 2>told; then fail "$2 passes for $1"; fi
    grep -qF -- "$3" told || fail "expected to be told: $3" "$(<told)"
}

test_shape_that_fits_passes() {
    shaped '{"a":"text","b?":["number"],"c":{"d":"boolean"},"e":"any","f?":"string"}' \
        printf '%s' '{"a":"x","b":[1,2.5],"c":{"d":false},"e":null}'
    shaped '["true"]' printf '[]'
    shaped '{"a":"false","b":"string"}' printf '{"a":false,"b":""}'
}

test_each_departure_is_noticed() {
    departs '{"a":"text"}' '{}' '$ has no member a'
    departs '{"a":"text"}' '{"a":""}' '$.a is not text: ""'
    departs '{"a?":"text"}' '{"a":null}' '$.a is not text: null'
    departs '{"a":"number"}' '{"a":"1"}' '$.a is not number: "1"'
    departs '{"a":"string"}' '{"a":1}' '$.a is not string: 1'
    departs '{"a":"boolean"}' '{"a":0}' '$.a is not boolean: 0'
    departs '{"a":"true"}' '{"a":false}' '$.a is not true: false'
    departs '{"a":"false"}' '{"a":true}' '$.a is not false: true'
    departs '{"a":"any"}' '{"a":1,"b":2}' '$ has a member too much: b'
    departs '[{"a":"any"}]' '[{"a":1},{}]' '$[1] has no member a'
    departs '{}' '[]' '$ is no object'
    departs '["any"]' '{}' '$ is no array'
    departs '"any"' '1 2' '2 JSON values instead of one'
    departs '"any"' '' '0 JSON values instead of one'
    departs '"any"' '{' 'no JSON'
    departs '"wrong"' '1' 'no shape is called wrong'
}

test_value_that_is_not_there_fails() {
    echo '{"a":[{"b":"x y"},false]}' >out
    expect_equal "a text" "x y" "$(value_at /a/0/b)"
    expect_equal "a boolean" false "$(value_at /a/1)"
    if value_at /a/2 >value; then fail "a value was found: $(<value)"; fi
}

run_claims "$@"
