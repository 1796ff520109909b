# Sourced by the tests of commands, instead of claims.bash. What a command says is left in the files
# out and err.
# shellcheck shell=bash
# shellcheck source=tests/support/claims.bash
. "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/claims.bash"

shape_rules=$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/shape.jq

# ends STATUS COMMAND...: the command ends with that status.
ends() {
    local expected=$1 status=0
    shift
    "$@" >out 2>err || status=$?
    [[ $status == "$expected" ]] ||
        fail "expected status $expected of: $*" "found: $status" "$(<out)" "$(<err)"
}

# has_shape SHAPE FILE: one JSON value of that shape stands there. shape.jq tells what a shape is.
has_shape() {
    local departures
    departures=$(jq --slurp --raw-output --argjson shape "$1" --from-file "$shape_rules" "$2") ||
        fail "no JSON" "$(<"$2")"
    [[ -z $departures ]] || fail "$departures" "$(cat "$2" 2>/dev/null)"
}

# shaped SHAPE COMMAND...: the command succeeds, or ends with $expected_status, with such JSON.
shaped() {
    ends "${expected_status:-0}" "${@:2}"
    has_shape "$1" out
}

# value_at POINTER: of the JSON in out, texts as they are; fails where there is nothing.
value_at() {
    jq --exit-status --raw-output --arg at "$1" \
        'getpath($at / "/" | .[1:] | map(tonumber? // .)) | if . == null then halt_error else tostring end' \
        "${2:-out}"
}
