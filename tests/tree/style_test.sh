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

# longer_than LINES [NAMES]: functions in the C++ of the files of list (those named in the file NAMES)
# that are longer, from the line of their name to the closing brace.
longer_than() {
    ctags -L list --language-force=C++ --kinds-C++=f -x --_xformat='%n %e %F %N' |
        awk -v limit="$1" -v names="${2:-}" '
            BEGIN { while (names != "" && (getline name < names) > 0) wanted[name] }
            { name = $0; sub(/^[0-9]+ [0-9]+ [^ ]+ /, "", name) }
            names != "" && !(name in wanted) { next }
            { ++seen }
            $2 - $1 + 1 > limit { print $3 ": " name " has " $2 - $1 + 1 " lines" }
            END { print seen + 0 >"seen" }'
}

# sources FOLDER...: the C++ of these folders.
sources() { find "$@" -name '*.cpp' -o -name '*.h' -o -name '*.hpp'; }

# The names of the functions.
exports() { sed -n 's/^KESTA_API [a-z]* \([A-Za-z0-9_]*\)(.*/\1/p' include/kesta_unified_zrkukey.h; }

test_no_file_has_more_than_400_lines() {
    cd "$source_tree"
    # The public header is one file by contract.
    expect_equal "longer files" "" "$(find src softkey tools include -type f \
        -not -path '*/build*/*' -not -path '*/abi-baseline/*' -not -path '*/node_modules/*' \
        -not -name kesta_unified_zrkukey.h -exec awk 'FNR == 401 { print FILENAME }' {} +)"
}

test_no_function_has_more_than_40_lines() {
    need ctags
    sources "$source_tree"/{src,softkey,tools,include} >list
    expect_equal "longer functions" "" "$(longer_than 40)"
    (($(<seen) > 1000)) || fail "only $(<seen) functions were found"
}

test_no_export_has_more_than_15_lines() {
    need ctags
    (cd "$source_tree" && exports) >names
    echo "$source_tree/src/kesta_unified_zrkukey.cpp" >list
    expect_equal "longer exports" "" "$(longer_than 15 names)"
    expect_equal "exports found" "$(wc -l <names)" "$(<seen)"
}

# body NAME LINES: a function of so many.
body() { printf 'int %s(int a) {\n%s    return a;\n}\n' "$1" "$(yes '    ++a;' | head -n $(($2 - 3)))"$'\n'; }

test_long_functions_are_noticed() {
    need ctags
    { body Sign 15 && body helper 40 && echo 'class C { int' && body method 41 && echo '};'; } >bad.cpp
    printf 'namespace {\ntemplate <class T>\n%s}\n' "$(body hidden 60)"$'\n' >>bad.cpp
    echo bad.cpp >list
    expect_equal "above 40" $'bad.cpp: hidden has 60 lines\nbad.cpp: method has 41 lines' \
        "$(longer_than 40)"
    expect_equal "functions" 4 "$(<seen)"
    printf 'Sign\nmethod\n' >names
    expect_equal "names above 15" "bad.cpp: method has 41 lines" "$(longer_than 15 names)"
    expect_equal "exports above 14" 2 "$(longer_than 14 names | wc -l)"
}

run_claims "$@"
