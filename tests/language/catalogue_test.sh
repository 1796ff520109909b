#!/usr/bin/env bash
# The catalogue against the sources, and each translation against its sentence.
# shellcheck source=tests/language/support.bash
. "$(dirname "$(readlink -f "$0")")/support.bash"

test_sentences_and_catalogue_are_current() {
    need xgettext msgmerge msgattrib msgfmt
    ends 0 "$KESTA_SOURCE/po/update" --check
    # What the check is worth: a changed sentence, and one without its Chinese, are seen.
    cp -r "$KESTA_SOURCE/po" "$KESTA_SOURCE/tools" "$KESTA_SOURCE/recorder" "$KESTA_SOURCE/softkey" .
    sed -i 's/"Show the library, the key/"Tell of the library, the key/' tools/ukey/commands.cpp
    ends 1 po/update --check
    ends 1 po/update
    expect_matches "named" 'Tell of the library, the key' "$(<out)"
    ends 1 po/update --check
    expect_matches "still named" 'Tell of the library, the key' "$(<out)"
}

test_nothing_is_fuzzy_or_untranslated() {
    LC_ALL=C ends 0 msgfmt --check --statistics --output-file=/dev/null "$KESTA_SOURCE/po/zh_CN.po"
    expect_matches "statistics" '^[0-9]+ translated messages\.$' "$(<err)"
}

# Holes, conversions, options and what is to be typed stay what they are.
test_translations_keep_what_is_filled_in_or_typed() {
    need python3
    ends 0 python3 "$here/compare.py" "$KESTA_CATALOGUES/zh_CN/LC_MESSAGES/kesta.mo"
    cp -r "$KESTA_SOURCE/po" .
    sed -i 's/msgstr "已拔出 {1}，槽位 {2}"/msgstr "已拔出 {1}，槽位 {3}"/' po/zh_CN.po
    msgfmt --output-file=wrong.mo po/zh_CN.po
    ends 1 python3 "$here/compare.py" wrong.mo
}

run_claims "$@"
