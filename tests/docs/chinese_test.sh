#!/usr/bin/env bash
# The pages in Chinese: each English one has its own, says the same, and does not fall behind.
# KESTA_SOURCE is the source tree.
# shellcheck source=tests/support/claims.bash
. "$(dirname "$(readlink -f "$0")")/../support/claims.bash"

source_tree=${KESTA_SOURCE:?names the source tree}

# The English pages, and where the Chinese one of each is.
pages() { (cd "$source_tree" && ls README.md packaging/debian/README.dev docs/*.md); }
chinese_of() {
    case $1 in
        README.md) echo README.zh.md ;;
        docs/*) echo "docs/zh/${1#docs/}" ;;
        *) echo "$1.zh" ;;
    esac
}

# What takes part, where po/update-docs may write.
copy_pages() {
    (cd "$source_tree" && tar c README.md README.zh.md docs packaging/debian/README.dev* po/docs) | tar x
}

# The comments of code are translated, nothing else of it: "LANGUAGE LINE" without them.
code_of() {
    awk '
        /^```/ { code = !code; language = substr($0, 4); next }
        code {
            if (language == "sh" || language == "console") { sub(/ +# .*$/, "") }
            if (language == "c" || language == "cpp" || language == "js") {
                sub(/ *\/\/ .*$/, "")
                sub(/ *\/\* .* \*\/ *$/, "")
            }
            if (language == "") { sub(/  -- .*$/, "") }
            print language " " $0
        }
        !code && /^    [^ -]/ { print }' "$1"
}

test_every_page_has_a_Chinese_one_and_each_leads_to_the_other() {
    local page chinese name
    cd "$source_tree"
    for page in $(pages); do
        chinese=$(chinese_of "$page")
        [[ -s $chinese ]] || fail "$page has no Chinese page $chinese"
        name=${page##*/}
        case $page in
            docs/*) expect_equal "line 3 of $page" "[中文](zh/$name)" "$(sed -n 3p "$page")"
                expect_equal "line 3 of $chinese" "[English](../$name)" "$(sed -n 3p "$chinese")" ;;
            *) expect_equal "line 3 of $page" "[中文](README.zh.md)" "$(sed -n 3p "$page")"
                expect_equal "line 3 of $chinese" "[English](README.md)" "$(sed -n 3p "$chinese")" ;;
        esac
    done
    for chinese in docs/zh/*.md; do
        [[ -e docs/${chinese##*/} ]] || fail "$chinese has no English page"
    done
}

test_Chinese_pages_say_what_the_English_ones_say_today() {
    need po4a msgattrib
    copy_pages
    "$source_tree/po/update-docs" . >said 2>&1 || fail "there is something to translate" "$(<said)"
    diff -r "$source_tree/docs" docs >&2 || fail "run po/update-docs"
    diff "$source_tree/README.zh.md" README.zh.md >&2 || fail "run po/update-docs"
    diff "$source_tree/packaging/debian/README.dev.zh" packaging/debian/README.dev.zh >&2 ||
        fail "run po/update-docs"
    diff -r -I '^"POT-Creation-Date:' "$source_tree/po/docs" po/docs >&2 || fail "run po/update-docs"
}

test_changed_and_new_sentences_of_English_pages_are_asked_for() {
    need po4a msgattrib
    copy_pages
    sed -i 's/^Line breaks in the cipher text/All line breaks in the cipher text/; s/^- Line breaks/- All line breaks/' docs/decrypt.md
    printf '\nThis sentence is new.\n' >>docs/events.md
    if po_update said; then fail "nothing was asked for" "$(<said)"; fi
    grep -q 'All line breaks in the cipher text' said || fail "the changed one was not" "$(<said)"
    grep -q 'This sentence is new' said || fail "the new one was not" "$(<said)"
}

po_update() { "$source_tree/po/update-docs" . >"$1" 2>&1; }

test_code_is_the_same_in_both_languages() {
    local page
    for page in $(pages); do
        code_of "$source_tree/$page" >english
        code_of "$source_tree/$(chinese_of "$page")" >chinese
        expect_same_lines "$page" english chinese
    done
}

test_no_sentence_of_a_Chinese_page_is_left_in_English() {
    local page
    for page in $(pages); do
        page=$source_tree/$(chinese_of "$page")
        awk '/^```/ { code = !code } !code && !/^(    |\||\[English\]|<!--)/' "$page" |
            LC_ALL=C.UTF-8 grep -vP '\p{Han}' | grep -E '[a-z]+ [a-z]+' >left || continue
        fail "${page#"$source_tree/"} holds this" "$(<left)"
    done
}

test_kinds_are_named_as_the_programs_name_them() {
    need jq
    jq -r '.kinds[] | "| `\(.name)` | \(.zh) | \(.exit) |"' "$source_tree/bindings/codes.json" >known
    sed -n "/^<!-- kinds -->/,/^<!-- end/p" "$source_tree/docs/zh/codes.md" | grep '^| `[a-z]' >found
    expect_same_lines "docs/zh/codes.md names the kinds otherwise" known found
}

test_manual_pages_are_in_Chinese_and_without_fault() {
    local page
    need man
    for page in "$source_tree"/docs/man/zh_CN/*.1; do
        LC_ALL=C.UTF-8 MANWIDTH=80 man --warnings=all -E UTF-8 -l "$page" 2>warnings >text
        expect_equal "what man warns of in ${page##*/}" "" "$(<warnings)"
        LC_ALL=C.UTF-8 grep -q '^名称' text || fail "${page##*/} is not in Chinese"
    done
}

# A ** behind Chinese punctuation ends no emphasis where a letter follows at once.
test_emphasis_ends_where_it_should() {
    if LC_ALL=C.UTF-8 grep -nP '\*\*[^*\s][^*]*[，。：；、）]\*\*[\p{L}\p{N}]' "$source_tree"/{README.zh.md,docs/zh/*.md} >found; then
        fail "the stars are shown as stars" "$(<found)"
    fi
}

run_claims "$@"
