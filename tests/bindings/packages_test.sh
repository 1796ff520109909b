#!/usr/bin/env bash
# The wheel and the tarball, as they are installed, with the examples as clients.
# KESTA_SOURCE and KESTA_BUILD name the source tree and the build folder.
# shellcheck source=tests/support/claims.bash
. "$(dirname "$(readlink -f "$0")")/../support/claims.bash"

set_up() {
    need openssl npm node bwrap
    export KESTA_SOFTKEY=$KESTA_BUILD/bin/softkey KESTA_SOFTKEY_HOME=$scratch/key
    export KESTA_SOFTKEY_PIN=135790 PYTHONDONTWRITEBYTECODE=1
    "$KESTA_SOURCE/bindings/make-packages" packages >made
}

authority() {
    local command=$1
    shift
    "$KESTA_SOURCE/tests/bindings/authority" "$command" "$scratch/authority" "$@"
}

in_sandbox() {
    "$KESTA_SOURCE/tools/ukey-sandbox" --softkey "$KESTA_BUILD/softkey/bin" \
        --library "$KESTA_BUILD/lib" --log "$scratch/library.log" "$@"
}

# examples_work RUN SUFFIX: enrols, signs, decrypts and follows events with the examples.
examples_work() {
    local run=$1 suffix=$2 requests parts said signature status=0
    example() {
        local name=$1
        shift
        in_sandbox "$run" "$KESTA_SOURCE/examples/$name.$suffix" "$@"
    }
    "$KESTA_SOFTKEY" create --serial SK0001 --media-id MEDIA-1 >/dev/null
    authority new
    mapfile -t requests < <(example enrol)
    expect_equal "number of requests" 2 "${#requests[@]}"
    authority issue "${requests[0]}" >sign.cer
    mapfile -t parts < <(authority escrow "${requests[1]}")
    echo "${parts[0]}" >enc.cer
    echo "${parts[1]}" >enc.envelope
    said=$(example enrol sign.cer enc.envelope enc.cer)
    expect_matches "the installation" '^installed for .*CN=' "$said"

    signature=$(example sign 'pay 12.50' 'Pay 12.50?')
    authority verify "$(<sign.cer)" 'pay 12.50' "$signature"
    said=$(authority encrypt "$(<enc.cer)" 'a letter' | example decrypt)
    expect_equal "the plain text" 'a letter' "$said"

    KESTA_SOFTKEY_PIN=000000 example sign a b 2>refused || status=$?
    expect_equal "status of a wrong PIN" 1 "$status"
    expect_matches "what is said of it" 'the PIN is wrong, 5 tries left' "$(<refused)"

    example events 2 60 >seen &
    until grep -q '\[after\]' library.log 2>/dev/null; do sleep 0.02; done
    "$KESTA_SOFTKEY" remove >/dev/null
    until grep -q removal seen; do sleep 0.02; done
    "$KESTA_SOFTKEY" insert >/dev/null
    wait $!
    expect_equal "the events" "removal MEDIA-1 arrival MEDIA-1" "$(xargs <seen)"
}

test_the_wheel_installs_and_the_examples_work_with_it() {
    /usr/bin/python3 -m installer --destdir installed --prefix / packages/*.whl
    PYTHONPATH=$(find "$scratch/installed" -name '*-packages' | head -n 1)
    export PYTHONPATH
    examples_work /usr/bin/python3 py
}

# npm finds its dependencies where they are, and nothing else: its cache is empty.
test_the_tarball_installs_offline_and_the_examples_work_with_it() {
    "$KESTA_SOURCE/bindings/prepare-node" "$scratch"
    echo '{"name": "client", "private": true, "dependencies": {"koffi": "*"}}' >package.json
    npm install --offline --ignore-scripts --cache "$scratch/cache" ./packages/*.tgz >npm.log 2>&1 ||
        fail "npm could not install it: $(<npm.log)"
    export NODE_PATH=$scratch/node_modules
    # Modules of either sort find all names.
    cat >names.mjs <<'PROGRAM'
import * as all from 'kesta-ukey';
import {CertType, Key, KestaError, Library, events, requestInfo} from 'kesta-ukey';
console.log([CertType, Key, KestaError, Library, events, requestInfo].includes(undefined),
    Object.keys(all.default).every((name) => name in all));
PROGRAM
    expect_equal "names that are imported" "false true" "$(node names.mjs)"
    examples_work node js
}

test_the_same_source_gives_the_same_bytes() {
    export SOURCE_DATE_EPOCH=1700000000
    (umask 077 && TZ=Asia/Shanghai "$KESTA_SOURCE/bindings/make-packages" one >made)
    sleep 1.1
    "$KESTA_SOURCE/bindings/make-packages" other >made
    diff -r one other
}

test_all_files_of_the_packages_are_in_them() {
    local file
    python3 -m zipfile -l packages/*.whl >wheel
    tar -tzf packages/*.tgz >tarball
    for file in "$KESTA_SOURCE"/bindings/python/kesta_ukey/*.*; do
        grep -q "kesta_ukey/${file##*/} " wheel || fail "${file##*/} is not in the wheel"
    done
    for file in "$KESTA_SOURCE"/bindings/node/lib/*.*; do
        grep -qx "package/lib/${file##*/}" tarball || fail "${file##*/} is not in the tarball"
    done
}

run_claims "$@"
