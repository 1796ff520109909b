#!/usr/bin/env bash
# The two libraries as files: what the linker made of them. KESTA_TOKEN_LIBRARY and
# KESTA_EVENT_LIBRARY are these files, KESTA_SOURCE the source tree.
# shellcheck source=tests/support/claims.bash
. "$(dirname "$(readlink -f "$0")")/../support/claims.bash"

library=${KESTA_TOKEN_LIBRARY:?names the token library}
event_library=${KESTA_EVENT_LIBRARY:?names the event library}
contract=${KESTA_SOURCE:?names the source tree}/include/kesta/token_library.h

test_token_library_shows_exactly_the_names_of_the_contract() {
    need nm
    grep -oE '^ *X\((int|const char\*), [A-Za-z0-9_]+' "$contract" | sed 's/.* //' | sort >expected
    grep -q "kEntryPoints == $(wc -l <expected)," "$contract" || fail "$(wc -l <expected) names were found"
    nm -D --defined-only "$library" | awk '{ print $3 }' | sort >actual
    expect_same_lines "the library shows other names" expected actual
}

test_token_librarys_own_names_are_bound_to_itself() {
    need nm readelf
    nm -D --defined-only "$library" | awk '{ print $3 }' | sort >own
    # What the loader looks up in other libraries first must not be a name of its own.
    readelf -rW "$library" | awk 'NF > 4 { print $5 }' | sed 's/@.*//' | sort -u >asked
    grep -q sqlite3_open asked || fail "the relocations could not be read"
    expect_equal "own names that the loader looks up" "" "$(comm -12 own asked)"
    readelf -dW "$library" | grep -q SYMBOLIC || fail "it is not linked with -Bsymbolic"
}

test_token_library_stays_loaded_once_it_is() {
    need readelf
    readelf -dW "$library" | grep -q NODELETE || fail "it is not linked with -z nodelete"
}

test_token_library_needs_only_OpenSSL_SQLite_libassuan_and_the_runtime() {
    need readelf
    readelf -dW "$library" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' >needed
    grep -q '^libcrypto' needed || fail "it does not even need OpenSSL"
    local runtime='lib(stdc\+\+|m|gcc_s|c)\.so\.[0-9]+|ld-linux.*'
    expect_equal "foreign libraries" "" \
        "$(grep -vE "^(libcrypto\.so\.3|libsqlite3\.so\.0|libassuan\.so\.0|$runtime)$" needed || true)"
}

test_event_library_shows_exactly_the_names_of_the_contract() {
    need nm
    printf '%s\n' ValtoT_ContextFinal ValtoT_ContextInit ValtoT_GetDeviceInfo ValtoT_GetSlotList \
        ValtoT_WaitForEvent >expected
    nm -D --defined-only "$event_library" | awk '{ print $3 }' | sort >actual
    expect_same_lines "the library shows other names" expected actual
}

# The key's cryptography belongs to the token library; a client that only waits does not load it.
test_event_library_has_its_name_and_binds_its_own_names() {
    need readelf
    readelf -dW "$event_library" >dynamic
    grep -q 'SONAME.*\[libR7Token_KESTA\.so\]' dynamic || fail "another name" "$(<dynamic)"
    grep -q SYMBOLIC dynamic || fail "it is not linked with -Bsymbolic"
}

run_claims "$@"
