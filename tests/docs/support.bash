# What the tests of the pages and examples share, beside that of the ukey command's tests. The build
# says where things are: KESTA_BUILD, the build folder; KESTA_SOURCE, the source tree; CC and CXX.
# shellcheck shell=bash
# shellcheck source=tests/ukey/support.bash
. "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/../ukey/support.bash"

# For the scripts that source this.
# shellcheck disable=SC2034
source_tree=${KESTA_SOURCE:?names the source tree}
# shellcheck disable=SC2034
build=${KESTA_BUILD:?names the build folder}
PATH=$KESTA_BIN:$PATH

has_lines() { (($(wc -l <"$1") >= $2)); }
