#!/usr/bin/env bash
# What ./check makes of builds and test runs that go well and badly. cmake and ctest are played by
# stand-ins that are told what to answer. KESTA_SOURCE is the source tree.
# shellcheck source=tests/support/claims.bash
. "$(dirname "$(readlink -f "$0")")/../support/claims.bash"

source_tree=${KESTA_SOURCE:?names the source tree}

# A tree in which ./check finds the stand-ins. Files that say how things go: fails/PRESET (tests
# fail), breaks/PRESET (the build fails), skips/PRESET (a test does not run), count/PRESET (number of
# concurrent tests, else 7).
make_tree() {
    mkdir -p tree/tools tree/packaging programs fails breaks skips count
    cp "$source_tree/check" tree/
    printf '#!/bin/sh\n' | tee tree/tools/install-packages >tree/packaging/prepare-aarch64
    cat >tree/packaging/check-aarch64 <<'STUB'
#!/usr/bin/env bash
set -euo pipefail
cd "$(dirname "$0")/.."
cmake --preset aarch64
cmake --build --preset aarch64
ctest --preset aarch64 | tee build/aarch64/check.log
STUB
    # The machine that runs this may be either.
    printf '#!/bin/sh\necho "${MACHINE:-x86_64}"\n' >programs/uname
    cat >programs/cmake <<'STUB'
#!/usr/bin/env bash
if [[ $1 == --preset ]]; then
    mkdir -p "build/$2"
else
    [[ ! -e ../breaks/$3 ]] || { echo "error: cannot build"; exit 1; }
fi
STUB
    cat >programs/ctest <<'STUB'
#!/usr/bin/env bash
if [[ $1 == --test-dir ]]; then
    preset=${2#build/}
    echo "Total Tests: $(cat "../count/$preset" 2>/dev/null || echo 7)"
    exit
fi
echo "1/7 Test #1: first of $2 ... Passed"
failed=0
[[ ! -e ../fails/$2 ]] || failed=2
printf '\n%s%% tests passed, %s tests failed out of 7\n\nTotal Test time (real) = 1 sec (%s)\n' \
    $((100 - failed * 10)) "$failed" "$2"
[[ ! -e ../skips/$2 ]] || printf '\nThe following tests did not run:\n\t3 - third (Skipped)\n'
((failed == 0)) || { printf '\nThe following tests FAILED:\n\t1 - first of %s\n' "$2"; exit 8; }
STUB
    chmod +x tree/tools/* tree/packaging/* programs/*
    PATH=$PWD/programs:$PATH
}

# checks STATUS [PRESET...]: what it says is left in the file said.
checks() {
    local status=0
    (cd / && "$OLDPWD/tree/check" "${@:2}") >said 2>&1 || status=$?
    expect_equal "exit status" "$1" "$status"
}

test_green_run_ends_with_the_closing_lines_of_what_ships() {
    make_tree
    checks 0
    expect_equal "the last line" "Total Test time (real) = 1 sec (dev)" "$(tail -n 1 said)"
    expect_equal "runs in the summary" "aarch64 tsan asan dev" "$(sed -n 's/: passed$//p' said | xargs)"
}

test_failed_run_fails_the_check_and_is_shown_last() {
    make_tree
    touch fails/dev
    checks 1
    expect_matches "the last line" "first of dev" "$(tail -n 1 said)"
    expect_equal "runs that passed" "aarch64 tsan asan" "$(sed -n 's/: passed$//p' said | xargs)"
    expect_equal "runs that failed" "dev" "$(sed -n 's/: FAILED$//p' said | xargs)"
}

test_failed_sanitizer_run_is_shown_behind_what_ships() {
    make_tree
    touch fails/asan
    checks 1
    expect_matches "the last line" "first of asan" "$(tail -n 1 said)"
}

test_failed_build_fails_the_check_and_is_named() {
    make_tree
    touch breaks/tsan
    checks 1
    grep -q 'FAILED before any test ran: tsan' said || fail "the build is not named"
}

test_aarch64_run_that_fails_fails_the_check() {
    make_tree
    touch fails/aarch64
    checks 1
    expect_matches "the last line" "first of aarch64" "$(tail -n 1 said)"
}

test_failed_preparation_for_aarch64_keeps_no_other_run_from_running() {
    make_tree
    printf '#!/bin/sh\nexit 1\n' | tee tree/packaging/prepare-aarch64 >tree/packaging/check-aarch64
    checks 1
    grep -q 'FAILED before any test ran: aarch64' said || fail "the run is not named"
    expect_equal "runs that passed" "tsan asan dev" "$(sed -n 's/: passed$//p' said | xargs)"
}

test_aarch64_machine_runs_no_emulator() {
    make_tree
    export MACHINE=aarch64
    checks 0
    expect_equal "runs" "tsan asan dev" "$(sed -n 's/: passed$//p' said | xargs)"
}

test_lines_of_an_earlier_check_are_not_shown_again() {
    make_tree
    mkdir -p tree/build/asan
    echo '100% tests passed, of an earlier check' >tree/build/asan/check.log
    touch breaks/asan
    checks 1
    grep -q 'FAILED before any test ran: asan' said || fail "the build is not named"
    if grep -q 'earlier check' said; then fail "lines of an earlier check are shown"; fi
}

test_test_that_does_not_run_fails_the_check() {
    make_tree
    touch skips/asan
    checks 1
    grep -q 'some tests of asan did not run' said || fail "it is not said"
}

test_concurrent_test_forgotten_under_ThreadSanitizer_fails_the_check() {
    make_tree
    echo 8 >count/dev
    checks 1
    grep -q 'dev has 8 concurrent tests, tsan 7' said || fail "it is not said"
}

test_presets_may_be_chosen() {
    make_tree
    checks 0 asan
    expect_equal "runs" "asan" "$(sed -n 's/: passed$//p' said | xargs)"
}

run_claims "$@"
