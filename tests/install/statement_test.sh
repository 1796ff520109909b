#!/usr/bin/env bash
# The signed statement of a release: what it holds for, and what it does not.
# shellcheck source=tests/support/claims.bash
. "$(dirname "$(readlink -f "$0")")/../support/claims.bash"

source_tree=${KESTA_SOURCE:?names the source tree}
verify=$source_tree/packaging/verify-release

# make_key NAME: its public half in NAME.gpg.
make_key() {
    need gpg gpgv jq git
    export GNUPGHOME=$PWD/$1.home
    mkdir -m 700 "$GNUPGHOME"
    gpg --batch --quiet --passphrase '' --quick-generate-key "$1@example.org" ed25519 sign 2>gpg.log
    gpg --batch --export "$1@example.org" >"$1.gpg"
}

# A release of two files in the folder release, of a repository that has nothing but the scripts.
make_release() {
    mkdir -p tree release/inner
    cp -r "$source_tree/packaging" tree/
    git -C tree init -q
    git -C tree add packaging
    git -C tree -c user.name=N -c user.email=e@example.org commit -qm one
    commit=$(git -C tree rev-parse HEAD)
    echo one >release/first.deb
    echo two >'release/inner/a second.whl'
    make_key maker
    tree/packaging/make-statement --commit HEAD --version 1.2-3 --key maker@example.org release 2>make.log ||
        fail "$(<make.log)"
    gpgconf --kill all
}

# refuses TEXT [OPTION...]: the release does not hold, and that is why.
refuses() {
    local text=$1
    shift
    if "$verify" "$@" release maker.gpg >said 2>&1; then fail "it passes"; fi
    grep -q -- "$text" said || fail "it fails otherwise" "$(<said)"
}

test_statement_holds_for_what_was_signed() {
    make_release
    "$verify" --commit "$commit" release maker.gpg >said
    expect_equal "what is said" "verify-release: version 1.2-3, commit $commit: 2 files are as signed" "$(<said)"
}

test_same_files_give_the_same_statement() {
    make_release
    cp release/statement.json before
    tree/packaging/make-statement --commit "$commit" --version 1.2-3 release
    cmp before release/statement.json
}

test_changed_byte_is_refused() {
    make_release
    printf 'tw0\n' >'release/inner/a second.whl'
    refuses 'not those that were signed'
}

test_missing_and_added_files_are_refused() {
    make_release
    touch release/third.deb
    refuses '+.*third.deb'
    rm release/third.deb release/first.deb
    refuses '-.*first.deb'
}

# A link may lead anywhere, and elsewhere tomorrow.
test_links_are_refused() {
    make_release
    ln -s /etc/hostname release/third.deb
    refuses 'third.deb is neither'
    if tree/packaging/make-statement --commit HEAD --version 1.2-3 release 2>said; then fail "it is stated"; fi
    grep -q 'third.deb is neither' said || fail "it fails otherwise" "$(<said)"
}

test_changed_statement_is_refused() {
    make_release
    sed -i 's/1.2-3/1.2-4/' release/statement.json
    refuses 'not signed by a key'
}

test_signature_of_another_is_refused() {
    make_release
    make_key other
    tree/packaging/make-statement --commit HEAD --version 1.2-3 --key other@example.org release
    gpgconf --kill all
    refuses 'not signed by a key'
    "$verify" release other.gpg
}

test_another_commit_is_refused() {
    make_release
    refuses "made from commit $commit, not 1234" --commit 1234
    refuses 'usage:' --commit ''
}

run_claims "$@"
