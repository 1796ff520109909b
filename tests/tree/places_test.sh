#!/usr/bin/env bash
# The facts of include/kesta/places.h in files that cannot include it: scripts, pages, packaging.
# KESTA_SOURCE is the source tree.
# shellcheck source=tests/support/claims.bash
. "$(dirname "$(readlink -f "$0")")/../support/claims.bash"

source_tree=${KESTA_SOURCE:?names the source tree}
places=$source_tree/include/kesta/places.h

# fact NAME: the text of a macro.
fact() {
    sed -nE "s/^#define $1 \"(.*)\"$/\1/p" "$places"
}

# everywhere REGEX: each match in the tree's own files, once.
everywhere() {
    cd "$source_tree"
    grep -rhoE --exclude-dir=.git --exclude-dir='build*' --exclude-dir='demo-*' \
        --exclude-dir=node_modules "$1" . | sort -u
}

# says_nothing_else REGEX FACT: whatever looks like the fact is the fact, and something does.
says_nothing_else() {
    local value
    value=$(fact "$2")
    [[ $value ]] || fail "$places holds no $2"
    expect_equal "all that looks like $2" "$value" "$(everywhere "$1")"
}

test_install_directory_is_the_same_everywhere() {
    says_nothing_else '/opt/apps/com\.[a-z.]+/files/[a-z]+' KESTA_INSTALL_DIRECTORY
}

test_log_file_is_the_same_everywhere() {
    says_nothing_else '/tmp/Valto[A-Za-z_]+\.log' KESTA_LOG_FILE
}

# Sources take these from the header; tests and pages may spell them out.
test_sources_repeat_no_fact() {
    cd "$source_tree"
    local found
    found=$(grep -rnE "\"[^\"]*($(fact KESTA_INSTALL_DIRECTORY)|$(fact KESTA_LOG_FILE))|104857600|0{15}10{15}10{8}" \
        --include='*.cpp' --include='*.h' --include='*.hpp' src softkey tools recorder include bench |
        grep -v '^include/kesta/places.h:' || true)
    expect_equal "facts that are written once more" "" "$found"
}

run_claims "$@"
