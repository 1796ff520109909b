#!/usr/bin/env bash
# What the files that ship tell of the machine that built them: nothing.
# shellcheck source=tests/support/claims.bash
. "$(dirname "$(readlink -f "$0")")/../support/claims.bash"
# shellcheck source=tests/install/installation.bash
. "$(dirname "$(readlink -f "$0")")/installation.bash"

test_no_file_names_the_folder_it_was_built_in() {
    install_parts "$PWD/prefix" runtime development tools softkey
    [[ -f prefix/bin/ukey && -f prefix/$libdir/libkesta_unified_zrkukey.so ]] ||
        fail "something is not installed"
    if grep -rlaF "$source_tree" prefix; then
        fail "these files name $source_tree"
    fi
}

run_claims "$@"
