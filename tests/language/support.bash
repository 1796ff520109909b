# What the tests of the commands' language share.
# shellcheck shell=bash
here=$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")
# shellcheck source=tests/ukey/support.bash
. "$here/../ukey/support.bash"

# The machine's locales and the caller's wishes are out of the way; bash itself stays in C.UTF-8.
export LOCPATH=${KESTA_LOCALES:?names the locales of the tests}
unset LANGUAGE LC_CTYPE LC_MESSAGES LANG

# shellcheck disable=SC2034 # for the tests
utf8=zh_CN.UTF-8 gb18030=zh_CN.GB18030

# in_locale LOCALE COMMAND...: bash would warn of locales that it cannot use, and read their bytes.
in_locale() { env LC_ALL="$1" "${@:2}"; }

is_chinese() { grep -qP '\p{Han}' "$1"; }
