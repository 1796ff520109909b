#!/usr/bin/env bash
# ukey doctor on folders that stand for systems, one for each thing that can be wrong. KESTA_FIXTURES
# holds the libraries that they are made of, KESTA_CLIENT_LIBRARY is the client library.
# shellcheck source=tests/cli/support.bash
. "$(dirname "$(readlink -f "$0")")/support.bash"

directory=opt/apps/com.zrk.uoskesta/files/bin
log=tmp/ValtoPinpad_KESTA.log

shape='{"ok":"boolean","problems":"number","warnings":"number","root":"string","paths":["text"],
    "findings":[{"id":"text","severity":"text","subject":"text","detail":"text","remedy?":"text"}],
    "entryPoints":[{"library":"text","name":"text","found":"boolean"}]}'

# A system below the folder root where all is well.
healthy_system() {
    mkdir -p "root/$directory" root/tmp root/usr/lib root/etc root/dev/bus/usb/001 \
        root/sys/bus/usb/devices/1-2
    cp "$KESTA_FIXTURES"/complete/* "root/$directory/"
    local name library
    for name in ValtoPinpadDaemon_KESTA KeyWarden libR7Pinpad_KESTA.so ValtoMonitor_kesta; do
        touch "root/$directory/$name"
    done
    # The system's own libraries are the real ones.
    ldd "$KESTA_CLIENT_LIBRARY" | awk '/=> \//{print $3} /^\t\//{print $1}' | sort -u |
        while read -r library; do
            [[ $library != */libR7Token_KESTA.so ]] || continue
            ln -sf "$(readlink -f "$library")" "root/usr/lib/$(basename "$library")"
        done
    cp "$KESTA_CLIENT_LIBRARY" root/usr/lib/
    echo 2e5a >root/sys/bus/usb/devices/1-2/idVendor
    echo 0301 >root/sys/bus/usb/devices/1-2/idProduct
    echo 1 >root/sys/bus/usb/devices/1-2/busnum
    echo 7 >root/sys/bus/usb/devices/1-2/devnum
    touch root/dev/bus/usb/001/007
}

diagnose() { bare doctor --root root "$@"; }

# finding ID SEVERITY DETAIL-REGEX: doctor has that finding, with a remedy unless all is fine.
finding() {
    local expected=0 line
    [[ $2 != problem ]] || expected=12
    expected_status=$expected shaped "$shape" diagnose --json
    line=$(tr '{' '\n' <out | grep -F "\"id\":\"$1\"" | grep -F "\"severity\":\"$2\"") ||
        fail "no $2 called $1" "$(<out)"
    expect_matches "$1" "$3" "$line"
    [[ $2 == fine || $line == *'"remedy":'* ]] || fail "$1 has no remedy" "$line"
    ends "$expected" diagnose
}

test_healthy_system_has_nothing_to_mend() {
    healthy_system
    ends 0 diagnose
    expect_matches "summary" 'All is well' "$(<out)"
    expected_status=0 shaped "$shape" diagnose --json
    expect_equal "entry points" 34 "$(grep -o '"found":true' out | wc -l)"
}

test_missing_install_directory_is_the_first_problem() {
    healthy_system
    rm -r "root/$directory"
    finding install-directory problem 'No such file'
    expect_matches "first" '^problem  install directory' "$(<out)"
}

test_missing_token_library_is_found() {
    healthy_system
    rm "root/$directory/libKestaZRK.so"
    finding token-library.present problem 'libKestaZRK.so: No such file'
}

test_missing_event_library_is_found() {
    healthy_system
    rm "root/$directory/libR7Token_KESTA.so"
    finding event-library.present problem 'libR7Token_KESTA.so: No such file'
}

test_unreadable_library_is_found() {
    healthy_system
    # The superuser reads everything; as another user the command would see this file closed.
    rm "root/$directory/libKestaZRK.so"
    mkdir "root/$directory/libKestaZRK.so"
    finding token-library.readable problem 'cannot be read'
}

test_file_without_permission_to_read_is_found() {
    healthy_system
    chmod 000 "root/$directory/libKestaZRK.so"
    if ((EUID == 0)); then
        chmod 755 "$scratch"
        need setpriv
        diagnose() { setpriv --reuid 65534 --clear-groups "$ukey_command" doctor --root root "$@"; }
    fi
    finding token-library.readable problem 'cannot be read'
    expect_matches "remedy" 'chmod a\+r' "$(<out)"
}

test_library_cut_short_is_found() {
    healthy_system
    truncate -s 3000 "root/$directory/libKestaZRK.so"
    finding token-library.readable problem 'cut short|outside itself|no shared library'
}

test_empty_library_is_found() {
    healthy_system
    : >"root/$directory/libKestaZRK.so"
    finding token-library.readable problem 'is empty'
}

test_text_file_in_place_of_the_library_is_found() {
    healthy_system
    echo 'not found' >"root/$directory/libKestaZRK.so"
    finding token-library.readable problem 'is no shared library'
}

test_library_for_another_machine_is_found() {
    healthy_system
    # Byte 18 names the machine: 40 is 32-bit ARM.
    printf '\x28' | dd of="root/$directory/libKestaZRK.so" bs=1 seek=18 conv=notrunc status=none
    finding token-library.machine problem 'is for ARM'
}

test_missing_entry_points_of_the_token_library_are_named() {
    healthy_system
    cp "$KESTA_FIXTURES/incomplete/libKestaZRK.so" "root/$directory/"
    finding token-library.entry-points problem '2 of 29 .*GetData, SetCachePinFlag'
    expected_status=12 shaped "$shape" diagnose --json
    expect_equal "missing" 2 "$(grep -o '"found":false' out | wc -l)"
    ends 12 diagnose --verbose
    expect_matches "verbose" 'missing  libKestaZRK.so  GetData' "$(<out)"
}

test_missing_entry_points_of_the_event_library_are_named() {
    healthy_system
    cp "$KESTA_FIXTURES/incomplete/libR7Token_KESTA.so" "root/$directory/"
    finding event-library.entry-points problem '1 of 5 .*ValtoT_ContextFinal'
}

test_missing_dependency_of_a_makers_library_is_named() {
    healthy_system
    cp "$KESTA_FIXTURES/dependent/libKestaZRK.so" "root/$directory/"
    finding token-library.dependencies problem 'libfixture_helper.so'
    cp "$KESTA_FIXTURES/helper/libfixture_helper.so" root/usr/lib/
    finding token-library.dependencies fine 'are there'
}

test_dependency_in_a_configured_folder_counts() {
    healthy_system
    cp "$KESTA_FIXTURES/dependent/libKestaZRK.so" "root/$directory/"
    mkdir -p root/etc/ld.so.conf.d root/opt/helper
    echo 'include ld.so.conf.d/*.conf' >root/etc/ld.so.conf
    echo '/opt/helper # of the maker' >root/etc/ld.so.conf.d/helper.conf
    cp "$KESTA_FIXTURES/helper/libfixture_helper.so" root/opt/helper/
    finding token-library.dependencies fine 'are there'
}

test_dependency_that_is_too_old_is_named_with_its_version() {
    healthy_system
    cp "$KESTA_FIXTURES/dependent/libKestaZRK.so" "root/$directory/"
    cp "$KESTA_FIXTURES/helper-old/libfixture_helper.so" root/usr/lib/
    finding token-library.versions problem 'FIXTURE_2 of libfixture_helper.so'
}

test_c_library_that_is_too_old_is_found() {
    healthy_system
    # The C library of this system without its newest versions: a library that defines none.
    rm root/usr/lib/libc.so.6
    cp "$KESTA_FIXTURES/helper-old/libfixture_helper.so" root/usr/lib/libc.so.6
    finding token-library.versions problem 'GLIBC_[0-9.]+ of libc.so.6'
}

test_missing_client_library_is_found_with_the_paths_tried() {
    healthy_system
    rm root/usr/lib/libkesta_unified_zrkukey.so
    finding client-library.present problem 'none of the folders'
    ends 12 diagnose --verbose
    expect_matches "paths" 'root/usr/lib/libkesta_unified_zrkukey.so' "$(<out)"
}

test_client_library_that_is_named_is_looked_at() {
    healthy_system
    mkdir root/elsewhere
    mv root/usr/lib/libkesta_unified_zrkukey.so root/elsewhere/
    expected_status=0 shaped "$shape" diagnose --library /elsewhere/libkesta_unified_zrkukey.so --json
    expected_status=12 shaped "$shape" diagnose --library /nowhere.so --json
    expect_matches "path" 'root/nowhere.so: No such file' "$(<out)"
}

test_missing_companions_are_a_warning_that_names_them() {
    healthy_system
    rm "root/$directory/KeyWarden" "root/$directory/libR7Pinpad_KESTA.so"
    finding companions warning 'KeyWarden, libR7Pinpad_KESTA'
}

test_companion_library_counts_with_its_suffix_only() {
    healthy_system
    mv "root/$directory/libR7Pinpad_KESTA.so" "root/$directory/libR7Pinpad_KESTA.sock"
    finding companions warning 'libR7Pinpad_KESTA'
}

test_log_that_cannot_be_written_is_a_warning() {
    healthy_system
    mkdir "root/$log"
    finding log.writable warning 'no plain file'
}

test_log_of_another_user_is_a_warning_that_names_the_owner() {
    ((EUID == 0)) || fail "this test gives a file to another user, which needs the superuser"
    healthy_system
    touch "root/$log"
    chmod 644 "root/$log"
    chmod 755 "$scratch"
    diagnose() { setpriv --reuid 65534 --clear-groups "$ukey_command" doctor --root root "$@"; }
    chmod a+rw root/dev/bus/usb/001/007
    finding log.writable warning 'belongs to root'
}

test_log_folder_that_is_missing_is_a_warning() {
    healthy_system
    rmdir root/tmp
    finding log.writable warning 'cannot be created'
}

test_log_size_is_told() {
    healthy_system
    truncate -s 5000000 "root/$log"
    finding log.writable fine '4 MiB'
}

test_log_near_its_limit_is_a_warning() {
    healthy_system
    truncate -s 100000000 "root/$log"
    finding log.size warning '95 MiB of 100 MiB'
}

test_log_beyond_its_limit_is_a_warning() {
    healthy_system
    truncate -s 104857600 "root/$log"
    finding log.size warning 'of 100 MiB'
    truncate -s 104857601 "root/$log"
    finding log.size warning 'the next record deletes'
}

test_absent_usb_device_is_a_warning() {
    healthy_system
    echo 0302 >root/sys/bus/usb/devices/1-2/idProduct
    finding usb.device warning 'no device 2E5A:0301'
}

test_usb_device_is_found_in_either_case() {
    healthy_system
    echo 2E5A >root/sys/bus/usb/devices/1-2/idVendor
    finding usb.device fine '2E5A:0301 at 1-2'
}

test_missing_usb_node_is_a_problem() {
    healthy_system
    rm root/dev/bus/usb/001/007
    finding usb.node problem '001/007: No such file'
}

test_closed_usb_node_is_a_problem() {
    ((EUID == 0)) || fail "this test looks as another user, which needs the superuser"
    healthy_system
    chmod 600 root/dev/bus/usb/001/007
    chmod 755 "$scratch"
    chmod 777 root/tmp
    diagnose() { setpriv --reuid 65534 --clear-groups "$ukey_command" doctor --root root "$@"; }
    finding usb.node problem 'may not be opened'
}

test_problems_come_before_warnings_and_causes_before_consequences() {
    healthy_system
    rm "root/$directory/KeyWarden" "root/$directory/libR7Token_KESTA.so"
    ends 12 diagnose
    expect_equal "order" "problem problem warning" \
        "$(grep -oE '^(problem|warning)' out | xargs)"
    expect_matches "cause first" 'event library.*problem +client library.*warning +companion' \
        "$(tr '\n' ' ' <out)"
}

test_root_that_is_no_folder_is_wrong_usage() {
    ends 2 bare doctor --root "$scratch/nowhere"
    expect_matches "said" 'is no folder' "$(<err)"
}

# The maker's libraries of the fixtures end the process when they are called.
test_crash_of_the_token_library_is_a_finding() {
    need bwrap
    status=0
    bwrap --dev-bind / / --tmpfs /opt --dir "/$directory" \
        --ro-bind "$KESTA_FIXTURES/complete" "/$directory" "$ukey_command" doctor >out || status=$?
    expect_equal "status" 12 "$status"
    expect_matches "finding" 'problem +key +the token library crashed with Aborted' "$(<out)"
}

run_claims "$@"
