#!/usr/bin/env bash
# The page of a recording, as a browser shows it.
# shellcheck source=tests/ukey/support.bash
. "$(dirname "$(readlink -f "$0")")/../ukey/support.bash"

# opened [FRAGMENT]: the page after its script has run. The browser's own sandbox wants privileges
# that a container does not give; the page is ours.
opened() {
    need chromium
    chromium --headless --no-sandbox --disable-gpu --disable-dev-shm-usage \
        --user-data-dir="$scratch/browser" --host-resolver-rules='MAP * ~NOTFOUND' \
        --virtual-time-budget=5000 --dump-dom "file://$scratch/case.html${1:-}" 2>browser.log
}

# rows FILE: the calls that are to be seen.
rows() { grep -o '<li class="[a-z ]*"[^>]*>' "$1" | grep -vc hidden || true; }

new_page() {
    new_key
    in_sandbox "$ukey_command" record --full -o case.rec -- sh -c \
        '"$0" label get; "$0" data get unknown-one; "$0" data set a-small-tag --value "</script><b>"' \
        "$ukey_command" >/dev/null 2>&1 || true
    bare trace show --html case.html case.rec
    calls=$(bare trace show --json case.rec | grep -c '^{"call"')
    failing=$(bare trace show --json case.rec | grep -c '"failed":true')
    ((failing > 0)) || fail "no call failed"
}

test_the_page_shows_every_call() {
    new_page
    opened >dom
    expect_equal "rows" "$calls" "$(rows dom)"
    grep -q "data-shown=\"$calls of $calls\"" dom || fail "the script did not run to its end"
}

test_the_page_finds_failing_calls_and_texts() {
    new_page
    opened '#failing=1' >dom
    expect_equal "failing rows" "$failing" "$(rows dom)"
    opened '#search=getlabel' >dom
    expect_equal "rows of GetLabel" 2 "$(rows dom)"
}

test_the_page_takes_nothing_from_elsewhere() {
    new_page
    ! grep -qE 'https?://|src=|@import|url\(' case.html || fail "the page asks for something"
    grep -q "default-src 'none'" case.html
}

run_claims "$@"
