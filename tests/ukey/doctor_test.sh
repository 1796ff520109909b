#!/usr/bin/env bash
# ukey doctor on folders that stand for systems, one for each thing that can be wrong.
# shellcheck source=tests/ukey/doctor_support.bash
. "$(dirname "$(readlink -f "$0")")/doctor_support.bash"

test_healthy_system_has_nothing_to_mend() {
    healthy_system
    ends 0 diagnose
    verdict '^All is well: '
    expected_status=0 shaped "$shape" diagnose --json
    expect_equal "entry points" \
        "$(cat "${KESTA_SOURCE:?names the source tree}"/include/kesta/{token,event}_library.h | grep -cE '^    X\(')" \
        "$(grep -o '"found":true' out | wc -l)"
}

test_missing_install_directory_is_the_first_problem() {
    healthy_system
    rm -r "root/$directory"
    finding install-directory problem 'No such file'
    expect_matches "first" '^problem  install directory' "$(<out)"
    expect_matches "consequence" 'comes with the install directory, see above' "$(<out)"
}

test_missing_token_library_is_found() {
    healthy_system
    rm "root/$directory/libKestaZRK.so"
    finding token-library.present problem 'libKestaZRK.so: No such file'
    expect_matches "remedy" "install the maker's package; it brings /$directory/libKestaZRK.so" "$(<out)"
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
    as_an_ordinary_user
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
    finding token-library.entry-points problem '2 of [0-9]+ .*GetData, SetCachePinFlag'
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

# ---- The same for the event library and the client library

event_library=$directory/libR7Token_KESTA.so
client_library=usr/lib/libkesta_unified_zrkukey.so

# for_another_machine FILE: byte 18 names the machine; 40 is 32-bit ARM.
for_another_machine() {
    printf '\x28' | dd of="$1" bs=1 seek=18 conv=notrunc status=none
}

test_damaged_event_library_is_found() {
    healthy_system
    : >"root/$event_library"
    finding event-library.readable problem 'libR7Token_KESTA.so is empty'
}

test_damaged_client_library_is_found() {
    healthy_system
    echo 'not found' >"root/$client_library"
    finding client-library.readable problem 'libkesta_unified_zrkukey.so is no shared library'
}

test_event_library_for_another_machine_is_found() {
    healthy_system
    for_another_machine "root/$event_library"
    finding event-library.machine problem 'is for ARM'
}

test_client_library_for_another_machine_is_found_though_the_loader_passes_it_over() {
    healthy_system
    for_another_machine "root/$client_library"
    finding client-library.machine problem 'libkesta_unified_zrkukey.so is for ARM'
}

test_missing_dependency_of_the_event_library_is_named() {
    healthy_system
    cp "$KESTA_FIXTURES/dependent/libR7Token_KESTA.so" "root/$directory/"
    finding event-library.dependencies problem 'libfixture_helper.so'
}

test_missing_dependency_of_the_client_library_is_named() {
    healthy_system
    rm root/usr/lib/libstdc++.so.6
    finding client-library.dependencies problem 'libstdc\+\+.so.6'
}

test_old_dependency_of_the_event_library_is_named() {
    healthy_system
    cp "$KESTA_FIXTURES/dependent/libR7Token_KESTA.so" "root/$directory/"
    cp "$KESTA_FIXTURES/helper-old/libfixture_helper.so" root/usr/lib/
    finding event-library.versions problem 'FIXTURE_2 of libfixture_helper.so'
}

test_C_library_too_old_for_the_client_library_is_found() {
    healthy_system
    rm root/usr/lib/libc.so.6
    cp "$KESTA_FIXTURES/helper-old/libfixture_helper.so" root/usr/lib/libc.so.6
    finding client-library.versions problem 'GLIBC_[0-9.]+ of libc.so.6'
}

test_damaged_dependency_is_told_from_a_missing_one() {
    healthy_system
    cp "$KESTA_FIXTURES/dependent/libKestaZRK.so" "root/$directory/"
    : >root/usr/lib/libfixture_helper.so
    finding token-library.dependencies problem 'libfixture_helper.so, which is empty'
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

run_claims "$@"
