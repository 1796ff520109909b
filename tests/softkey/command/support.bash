# Sourced by the tests of the command `softkey`. Each begins with an empty state folder. KESTA_BIN is
# the folder of programs, KESTA_SOURCE the source tree.
# shellcheck shell=bash
# shellcheck source=tests/support/commands.bash
. "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/../../support/commands.bash"

softkey=${KESTA_BIN:?names the folder of programs}/softkey
# shellcheck disable=SC2034
source=${KESTA_SOURCE:?names the source tree}
unset KESTA_SOFTKEY_PIN KESTA_SOFTKEY_NEW_PIN

set_up() {
    export KESTA_SOFTKEY_HOME=$scratch/home
    : >out
    : >err
}

# run STATUS ARGUMENTS...: the command ends with that status; its standard input is empty.
run() { ends "$1" "$softkey" "${@:2}" </dev/null; }

out_is() { expect_equal "the output" "$1" "$(<out)"; }
err_is() { expect_equal "the error output" "$1" "$(<err)"; }
out_has() { grep -qF -- "$1" out || fail "the output lacks: $1" "$(<out)"; }
out_lacks() { if grep -qF -- "$1" out err; then fail "the output has: $1"; fi; }
silent() { [[ ! -s err ]] || fail "the error output is not empty" "$(<err)"; }

# value_is POINTER VALUE [FILE]
value_is() { expect_equal "$1" "$2" "$(value_at "$1" "${3:-out}")"; }

create() { KESTA_SOFTKEY_PIN=${PIN-123456} run 0 create "$@"; }

# shellcheck disable=SC2034
subcommands="create list show unlock insert remove delete check screen button misbehave envelope
export-cert path"
