#!/usr/bin/env bash
# The launcher. KESTA_SOURCE is the source tree.
# shellcheck source=tests/support/claims.bash
. "$(dirname "$(readlink -f "$0")")/../support/claims.bash"

source_tree=${KESTA_SOURCE:?names the source tree}
launcher=$source_tree/tools/ukey-sandbox
install_directory=/opt/apps/com.zrk.uoskesta/files/bin
log_file=/tmp/ValtoPinpad_KESTA.log
unset KESTA_SOFTKEY_BIN KESTA_SOFTKEY_HOME LD_LIBRARY_PATH

# For the launcher a software key is two files of the right names and processor.
make_softkey() {
    mkdir -p "$1"
    cp /bin/true "$1/libKestaZRK.so"
    cp /bin/true "$1/libR7Token_KESTA.so"
}

# refuses STATUS TEXT COMMAND...: it ends with that status, and TEXT is in what it says.
refuses() {
    local status=0 said
    said=$("${@:3}" 2>&1) || status=$?
    expect_equal "exit status of ${*:3}" "$1" "$status"
    [[ $said == *"$2"* ]] || fail "expected to be told: $2" "was told: $said"
}

# A view of the machine in which $1, a folder, stands at /opt. The launcher runs inside as it would
# on a machine that has such a folder.
with_opt() {
    local opt=$1
    shift
    bwrap --dev-bind / / --bind "$opt" /opt --chdir "$PWD" -- "$@"
}

test_command_finds_the_software_key_at_the_install_directory() {
    make_softkey key
    "$launcher" --softkey key ls "$install_directory" >found
    expect_equal "install directory" "libKestaZRK.so libR7Token_KESTA.so" "$(xargs <found)"
}

test_machine_is_left_as_it_was() {
    make_softkey key
    mkdir opt
    with_opt "$PWD/opt" "$launcher" --softkey key true
    expect_equal "what is left below /opt" "" "$(ls -A opt)"
}

test_other_programs_below_opt_stay_visible() {
    make_softkey key
    mkdir -p opt/apps/other opt/tool
    echo hello >opt/tool/file
    ln -s tool/file opt/link
    with_opt "$PWD/opt" "$launcher" --softkey key \
        sh -c "cat /opt/link; ls /opt/apps $install_directory" >seen
    expect_equal "what is seen" \
        "hello /opt/apps: com.zrk.uoskesta other $install_directory: libKestaZRK.so libR7Token_KESTA.so" \
        "$(xargs <seen)"
}

test_software_key_covers_an_installed_one() {
    make_softkey key
    mkdir -p "opt/${install_directory#/opt/}"
    touch "opt/${install_directory#/opt/}/libOfTheMaker.so"
    with_opt "$PWD/opt" "$launcher" --softkey key ls "$install_directory" >found
    expect_equal "install directory" "libKestaZRK.so libR7Token_KESTA.so" "$(xargs <found)"
}

test_command_keeps_folder_arguments_and_environment() {
    make_softkey key
    mkdir 'a folder'
    cd 'a folder'
    GREETING='good day' "$launcher" --softkey ../key \
        sh -c 'pwd; echo "$GREETING"; echo "$1"; touch made' sh 'two  blanks' >../seen
    expect_equal "what is seen" "$PWD"$'\ngood day\ntwo  blanks' "$(<../seen)"
    [[ -e made ]] || fail "a file that the command made is not there"
}

test_exit_status_is_the_commands() {
    make_softkey key
    refuses 7 '' "$launcher" --softkey key sh -c 'exit 7'
    refuses 137 '' "$launcher" --softkey key sh -c 'kill -9 $$'
    refuses 7 '' "$launcher" --softkey key --log log sh -c 'exit 7'
}

test_ending_the_launcher_ends_the_command() {
    make_softkey key
    "$launcher" --softkey key sh -c 'echo $$ >pid; exec sleep 60' &
    local launched=$! tries
    for ((tries = 0; tries < 100; ++tries)); do
        [[ ! -s pid ]] || break
        sleep 0.05
    done
    kill "$launched"
    wait "$launched" || true
    for ((tries = 0; tries < 100; ++tries)); do
        kill -0 "$(<pid)" 2>/dev/null || return 0
        sleep 0.05
    done
    fail "the command goes on"
}

test_ordinary_user_may_run_it() {
    need setpriv
    local as=()
    if ((EUID == 0)); then
        as=(setpriv --reuid 65534 --regid 65534 --clear-groups)
    fi
    make_softkey key
    cp "$launcher" launcher
    chmod -R a+rX .
    "${as[@]}" ./launcher --softkey key ls "$install_directory" >found
    expect_equal "install directory" "libKestaZRK.so libR7Token_KESTA.so" "$(xargs <found)"
}

test_log_goes_into_the_file_that_is_named() {
    make_softkey key
    echo before >trace.log
    "$launcher" --softkey key --log trace.log sh -c "echo record >>$log_file"
    expect_equal "the named log" $'before\nrecord' "$(<trace.log)"
}

test_log_stays_out_of_tmp_when_a_file_is_named() {
    make_softkey key
    cp "$launcher" launcher
    mkdir tmp
    bwrap --dev-bind / / --bind tmp /tmp --bind "$PWD" /tmp/here --chdir /tmp/here \
        ./launcher --softkey key --log trace.log sh -c "echo record >>$log_file"
    expect_equal "the named log" record "$(<trace.log)"
    expect_equal "what is left in /tmp" here "$(ls -A tmp)"
}

test_log_that_cannot_be_written_is_refused() {
    make_softkey key
    refuses 125 "cannot write the log to no/such/folder" \
        "$launcher" --softkey key --log no/such/folder true
}

test_home_names_the_state_folder() {
    make_softkey key
    "$launcher" --softkey key --home state sh -c 'echo "$KESTA_SOFTKEY_HOME"' >seen
    expect_equal KESTA_SOFTKEY_HOME "$PWD/state" "$(<seen)"
}

test_build_folder_brings_its_own_software_key_and_library() {
    make_softkey tree/build/dev/softkey/bin
    mkdir -p tree/build/dev/bin tree/build/dev/lib
    touch tree/build/dev/lib/libkesta_unified_zrkukey.so
    cp "$launcher" tree/build/dev/bin/
    tree/build/dev/bin/ukey-sandbox --print sh -c 'echo "$LD_LIBRARY_PATH"' >seen 2>used
    expect_equal LD_LIBRARY_PATH "$PWD/tree/build/dev/lib" "$(<seen)"
    expect_matches "what is used" "$PWD/tree/build/dev/softkey/bin" "$(<used)"
}

test_source_tree_offers_its_newest_build() {
    make_softkey tree/build/old/softkey/bin
    make_softkey tree/build/new/softkey/bin
    make_softkey tree/build/older/softkey/bin
    touch -d '1 hour ago' tree/build/old/softkey/bin/*
    touch -d '2 hours ago' tree/build/older/softkey/bin/*
    mkdir tree/tools
    cp "$launcher" tree/tools/
    tree/tools/ukey-sandbox --print true 2>used
    expect_matches "what is used" "$PWD/tree/build/new/softkey/bin" "$(<used)"
}

test_installed_launcher_finds_the_installed_software_key() {
    make_softkey usr/lib/some-triplet/kesta-softkey
    mkdir usr/bin
    cp "$launcher" usr/bin/
    usr/bin/ukey-sandbox --print true 2>used
    expect_matches "what is used" "$PWD/usr/lib/some-triplet/kesta-softkey" "$(<used)"
}

test_environment_names_the_software_key() {
    make_softkey key
    KESTA_SOFTKEY_BIN=$PWD/key "$launcher" --print true 2>used
    expect_matches "what is used" "$PWD/key" "$(<used)"
}

# An ELF file for a processor that no machine here has.
make_foreign() {
    make_softkey "$1"
    printf '\x03\x00' | dd of="$1/libKestaZRK.so" bs=1 seek=18 conv=notrunc status=none
}

test_software_key_for_another_processor_is_passed_over() {
    make_foreign tree/build/new/softkey/bin
    make_softkey tree/build/old/softkey/bin
    touch -d '1 hour ago' tree/build/old/softkey/bin/*
    mkdir tree/tools
    cp "$launcher" tree/tools/
    tree/tools/ukey-sandbox --print true 2>used
    expect_matches "what is used" "$PWD/tree/build/old/softkey/bin" "$(<used)"
    rm -r tree/build/old
    refuses 125 "no software key for $(uname -m)" tree/tools/ukey-sandbox true
}

test_emulator_gets_the_software_key_of_its_processor() {
    make_softkey tree/build/native/softkey/bin
    mkdir tree/tools
    cp "$launcher" tree/tools/
    cp /bin/true qemu-sparc64
    refuses 125 "no software key for sparc64" tree/tools/ukey-sandbox ./qemu-sparc64 client
}

test_what_is_missing_is_named() {
    make_softkey key
    mkdir tree empty programs
    cp "$launcher" tree/
    refuses 127 "command not found: no-such-command" "$launcher" --softkey key no-such-command
    refuses 125 "no software key found" tree/ukey-sandbox true
    refuses 125 "empty does not hold libKestaZRK.so" "$launcher" --softkey empty true
    ln -s "$(command -v bash)" "$(command -v readlink)" "$(command -v dirname)" \
        "$(type -P true)" programs/
    refuses 125 "apt-get install bubblewrap" env PATH="$PWD/programs" "$launcher" --softkey key true
}

test_machine_without_user_namespaces_is_told_the_remedies() {
    make_softkey key
    mkdir programs
    printf '#!/bin/sh\necho "bwrap: No permissions to create a new namespace" >&2\nexit 1\n' \
        >programs/bwrap
    chmod +x programs/bwrap
    local remedy
    for remedy in "No permissions to create" max_user_namespaces unprivileged_userns_clone \
        apparmor_restrict_unprivileged_userns SYS_ADMIN; do
        refuses 125 "$remedy" env PATH="$PWD/programs:$PATH" "$launcher" --softkey key true
    done
}

test_wrong_usage_is_refused() {
    refuses 2 "nothing to run" "$launcher"
    refuses 2 "unknown option --nonsense" "$launcher" --nonsense true
    refuses 2 "--log needs a value" "$launcher" --log
    refuses 2 "the value of --softkey is empty" "$launcher" --softkey '' true
}

test_help_describes_every_option_and_gives_examples() {
    local option
    "$launcher" --help >help
    for option in $(sed -nE '/^while/,/^done/s/^ +(--[a-z| -]+)\).*/\1/p' "$launcher" | tr -d '|'); do
        [[ $option == -- ]] || grep -qE "^  $option( |$)" help || fail "no word about $option"
    done
    grep -q '^examples:' help || fail "no examples"
}

test_manual_page_knows_every_option() {
    local page=$source_tree/docs/man/ukey-sandbox.1 option
    need man
    man --warnings -E UTF-8 -l "$page" >text 2>warnings
    expect_equal "what man warns of" "" "$(<warnings)"
    "$launcher" --help | grep -oE '^  --[a-z]+' | tr -d ' ' >options
    [[ -s options ]] || fail "--help names no option"
    while read -r option; do
        grep -qE "^\.BI? ${option//-/\\\\-}( |\$)" "$page" || fail "the page lacks $option"
    done <options
}

run_claims "$@"
