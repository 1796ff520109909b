#!/usr/bin/env bash
# The links between the pages of the tree, and that broken ones are noticed. KESTA_SOURCE is the
# source tree.
# shellcheck source=tests/support/claims.bash
. "$(dirname "$(readlink -f "$0")")/../support/claims.bash"

source_tree=${KESTA_SOURCE:?names the source tree}
checker=$(dirname "$(readlink -f "$0")")/check-links

# finds_broken TARGET: a page with such a link beside a good one is refused, and the link is named.
finds_broken() {
    mkdir -p tree/sub
    printf '# One page\n\n## The heading\n' >tree/sub/other.md
    printf 'A [good one](sub/other.md#the-heading).\n\nA [bad one](%s).\n' "$1" >tree/page.md
    if "$checker" tree >said; then fail "$1 passed" "$(<said)"; fi
    grep -qF "./page.md:3: no such" said || fail "the place is not named" "$(<said)"
    grep -qF "$1" said || fail "the link is not named" "$(<said)"
    grep -q '2 links checked, 1 broken' said || fail "the good link is not good" "$(<said)"
}

test_every_link_of_the_tree_leads_somewhere() {
    "$checker" "$source_tree" >said || fail "$(<said)"
}

test_link_to_a_missing_file_is_noticed() {
    finds_broken sub/missing.md
}

test_link_to_a_missing_heading_is_noticed() {
    finds_broken 'sub/other.md#no-such-heading'
}

test_link_to_a_missing_heading_of_the_same_page_is_noticed() {
    finds_broken '#nowhere'
}

test_link_to_a_missing_folder_is_noticed() {
    finds_broken '../elsewhere/'
}

test_link_by_reference_is_followed() {
    mkdir tree
    printf 'A [name].\n\n[name]: missing.md\n' >tree/page.md
    if "$checker" tree >said; then fail "it passed" "$(<said)"; fi
    grep -qF './page.md:3: no such file: missing.md' said || fail "$(<said)"
}

test_link_in_code_is_none() {
    mkdir tree
    # shellcheck disable=SC2016
    printf '# Page\n[top](#page) `[x](missing.md)`\n```\n[y](missing.md)\n```\n' >tree/page.md
    "$checker" tree >said || fail "$(<said)"
    grep -q '1 links checked' said || fail "$(<said)"
}

test_tree_without_links_is_suspicious() {
    mkdir tree
    echo '# Page' >tree/page.md
    if "$checker" tree >said; then fail "nothing was checked, and it passed"; fi
}

run_claims "$@"
