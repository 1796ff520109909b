#!/usr/bin/env bash
# How the sources are written. KESTA_SOURCE is the source tree.
# shellcheck source=tests/support/claims.bash
. "$(dirname "$(readlink -f "$0")")/../support/claims.bash"

source_tree=${KESTA_SOURCE:?names the source tree}

# Every file of the tree, without those that a build or a demonstration leaves behind.
tree_files() {
    find "$source_tree" -type d \( -name .git -o -name 'build*' -o -name 'demo-*' -o \
        -name node_modules \) -prune -o -type f "$@" -print0
}

test_shell_scripts_pass_shellcheck() {
    need shellcheck
    local file first scripts=()
    while IFS= read -r -d '' file; do
        IFS= read -r first <"$file" || true
        [[ $first =~ ^#!.*[/\ ](ba)?sh( |$) || $file == *.bash ]] && scripts+=("$file")
    done < <(tree_files -size -200k)
    ((${#scripts[@]} >= 8)) || fail "only ${#scripts[@]} shell scripts were found"
    cd "$source_tree"
    shellcheck -x --severity=warning "${scripts[@]#"$source_tree"/}"
}

test_C_and_Cxx_sources_are_formatted() {
    need clang-format
    tree_files \( -name '*.c' -o -name '*.cpp' -o -name '*.h' -o -name '*.hpp' \) >sources
    (($(tr -cd '\0' <sources | wc -c) >= 50)) || fail "hardly any source was found"
    xargs -0 clang-format --dry-run -Werror <sources
}

run_claims "$@"
