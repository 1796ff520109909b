# Sourced by the tests of the command `softkey`, which are run as
#   command_…_test.sh TEST SOFTKEY JSON_VALUE SOURCE_FOLDER
# Each function whose name begins with test_ is a test, in an empty state folder.
set -u

softkey=$2
json_value=$3
source=$4
work=$(mktemp -d) || exit 1
trap 'rm -rf "$work"' EXIT
cd "$work" || exit 1
export KESTA_SOFTKEY_HOME=$work/home
unset KESTA_SOFTKEY_PIN KESTA_SOFTKEY_NEW_PIN

fail() {
    printf '%s: %s\n' "$test" "$1" >&2
    printf -- '--- stdout\n%s\n--- stderr\n%s\n' "$(cat out)" "$(cat err)" >&2
    exit 1
}

# run CODE ARGUMENTS…: the command ends with that exit code; its output is in out and err.
run() {
    local wanted=$1 got
    shift
    "$softkey" "$@" >out 2>err </dev/null
    got=$?
    [ "$got" -eq "$wanted" ] || fail "softkey $*: exit code $got instead of $wanted"
}

out_is() { [ "$(cat out)" = "$1" ] || fail "the output is not: $1"; }
err_is() { [ "$(cat err)" = "$1" ] || fail "the error output is not: $1"; }
out_has() { grep -qF -- "$1" out || fail "the output lacks: $1"; }
out_lacks() { if grep -qF -- "$1" out err; then fail "the output has: $1"; fi; }
silent() { [ ! -s err ] || fail "the error output is not empty"; }

# value_is POINTER VALUE [FILE]
value_is() {
    local got
    got=$("$json_value" "$1" <"${3:-out}") || fail "no JSON value at $1"
    [ "$got" = "$2" ] || fail "$1 is $got instead of $2"
}

create() { KESTA_SOFTKEY_PIN=${PIN-123456} run 0 create "$@"; }

subcommands="create list show unlock insert remove delete check screen button misbehave envelope
export-cert path"

# The last line of each script: runs the one test that was asked for.
run_test() {
    test=$1
    : >out
    : >err
    if [[ $1 != test_* ]] || ! declare -F "$1" >/dev/null; then
        echo "no such test: $1" >&2
        exit 1
    fi
    "$1"
}
