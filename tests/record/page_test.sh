#!/usr/bin/env bash
# The pages of a recording and of a report, as a browser shows them.
# shellcheck source=tests/ukey/support.bash
. "$(dirname "$(readlink -f "$0")")/../ukey/support.bash"

page=case.html

# opened [FRAGMENT]: the page after its script has run. The browser's own sandbox wants privileges
# that a container does not give; the page is ours.
opened() {
    need chromium
    chromium --headless --no-sandbox --disable-gpu --disable-dev-shm-usage \
        --user-data-dir="$scratch/browser" --host-resolver-rules='MAP * ~NOTFOUND' \
        --virtual-time-budget=5000 --dump-dom "file://$scratch/$page${1:-}" 2>browser.log
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

# A library whose name would be bold, and a PIN that was not entered.
test_the_page_of_a_report_shows_everything_as_text() {
    need unzip
    new_key
    KESTA_SOFTKEY_PIN=000000 ukey pin change 2>/dev/null && fail "the PIN is right"
    ukey report -o report.zip --library './<b>&quot;bold.so' >/dev/null
    unzip -q report.zip
    page=ukey-report/report.html
    opened >dom
    expect_equal "findings" "$(jq '.findings | length' ukey-report/report.json)" \
        "$(grep -cE '<tr class="(problem|warning|fine)">' dom)"
    expect_equal "failures" 1 "$(grep -c '<li><time>' dom)"
    expect_matches "failure" '<b>ChangePin</b> <code>0x00005B21</code> the PIN is wrong' "$(grep '<li><time>' dom)"
    grep -qF '&lt;b&gt;&amp;quot;bold.so' dom || fail "the name is not there as it is"
    ! grep -qF '<b>&' dom || fail "the name became an element"
    expect_equal "the last line" "$(jq -r .verdict ukey-report/report.json)" \
        "$(sed -n 's|<p class="verdict">\(.*\)</p>|\1|p' dom | tail -n 1)"
    ! grep -qE 'https?://|src=|href=|@import|url\(|<script' "$page" || fail "the page asks for something"
    grep -q "default-src 'none'" "$page"
    # What is seen, and not only what is there: the head of the page is not of one colour.
    chromium --headless --no-sandbox --disable-gpu --disable-dev-shm-usage --user-data-dir="$scratch/browser" \
        --window-size=800,600 --screenshot="$scratch/seen.png" "file://$scratch/$page" 2>browser.log
    (($(stat -c %s seen.png) > 15000)) || fail "there is nothing to be seen"
}

run_claims "$@"
