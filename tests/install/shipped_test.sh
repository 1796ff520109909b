#!/usr/bin/env bash
# The files that ship: hardening, the runtime that they load on, what they name and where they lie.
# They are installed as for the packages and read from there.
# shellcheck source=tests/support/claims.bash
. "$(dirname "$(readlink -f "$0")")/../support/claims.bash"
# shellcheck source=tests/install/installation.bash
. "$(dirname "$(readlink -f "$0")")/installation.bash"

checker=$source_tree/packaging/check-symbol-versions

# Sets programs (what runs or is loaded; the names for the linker are neither), library, and of the
# recorder's libraries stand_ins (own code alone) and cores (which hold Debian's libsodium).
install_everything() {
    local file
    need readelf file
    install_parts "$PWD/prefix" runtime development tools softkey
    programs=()
    while IFS= read -r file; do
        [[ $(file -b "$file") != ELF* ]] || programs+=("$file")
    done < <(find prefix -type f ! -path 'prefix/*/kesta_unified_zrkukey/*')
    library=prefix/$libdir/libkesta_unified_zrkukey.so
    cat >known <<TEXT
bin/softkey
bin/ukey
$libdir/kesta-recorder/events/libR7Token_KESTA.so
$libdir/kesta-recorder/exports/libkesta_unified_zrkukey.so
$libdir/kesta-recorder/libkesta_audit.so
$libdir/kesta-recorder/libkesta_recorder.so
$libdir/kesta-recorder/libkesta_replayer.so
$libdir/kesta-recorder/replay-events/libR7Token_KESTA.so
$libdir/kesta-recorder/replay-token/libKestaZRK.so
$libdir/kesta-recorder/token/libKestaZRK.so
$libdir/kesta-softkey/libKestaZRK.so
$libdir/kesta-softkey/libR7Token_KESTA.so
$libdir/libkesta_unified_zrkukey.so
TEXT
    printf '%s\n' "${programs[@]#prefix/}" | LC_ALL=C sort >found
    expect_same_lines "files that run or are loaded" known found
    stand_ins=(prefix/"$libdir"/kesta-recorder/{libkesta_audit.so,*/*.so})
    cores=(prefix/"$libdir"/kesta-recorder/libkesta_re{corder,player}.so)
}

# checked IMPORTS: of the C library's functions that have a checked form one is called in it, or none is.
checked() {
    readelf --dyn-syms --wide "$("$CC" -print-file-name=libc.so.6)" |
        sed -nE 's/.* (__[a-z_]+_chk)@.*/\1/p' >forms
    grep -qx __memcpy_chk forms || fail "the C library's checked forms are not known"
    grep -qxFf forms <<<"$1" || ! sed -E 's/.*/__&_chk/' <<<"$1" | grep -qxFf forms
}

# Puts down what each program is told to be that must be, or must not be. hardened FILE.
hardened() {
    local segments dynamic imports stack
    segments=$(readelf --segments --wide "$1")
    dynamic=$(readelf --dynamic --wide "$1")
    imports=$(readelf --dyn-syms --wide "$1" | awk '$7 == "UND" {sub(/@.*/, "", $8); print $8}')
    grep -q GNU_RELRO <<<"$segments" || echo "no read-only relocations"
    grep -q BIND_NOW <<<"$dynamic" || echo "relocations are not done before the start"
    stack=$(grep GNU_STACK <<<"$segments") || echo "no word about the stack"
    [[ $stack != *RWE* ]] || echo "the stack is executable"
    if grep -E '^ +LOAD .* RWE ' <<<"$segments"; then echo "writable and executable"; fi
    if grep TEXTREL <<<"$dynamic"; then echo "text relocations"; fi
    grep -qx __stack_chk_fail <<<"$imports" || echo "no stack protector"
    [[ ${KESTA_BUILD_TYPE:-} == Debug ]] || checked "$imports" ||
        echo "no checked calls of the C library"
    [[ $1 == *.so ]] || grep -q 'Flags:.* PIE' <<<"$dynamic" || echo "not position-independent"
}

test_every_program_and_library_is_hardened() {
    local file found
    install_everything
    for file in "${programs[@]}"; do
        found=$(hardened "$file")
        expect_equal "$file" "" "$found"
    done
}

# The check above is only worth something when it finds what is missing.
test_unhardened_library_is_found_out() {
    echo 'int f(char* p) { char t[9]; __builtin_strcpy(t, p); return t[0]; }' >bare.c
    "$CC" -shared -fPIC -O1 -fno-stack-protector -U_FORTIFY_SOURCE -Wl,-z,norelro,-z,lazy \
        -Wl,-z,execstack bare.c -o bare.so 2>/dev/null
    hardened bare.so >found
    expect_equal "what is missing" "no read-only relocations
relocations are not done before the start
the stack is executable
no stack protector
no checked calls of the C library" "$(<found)"
}

# The kernel and the loader switch control-flow protection on for a file that says so as a whole,
# start files included. In a build that ships the libraries that clients load do; there alone are the
# start files ours.
test_libraries_are_marked_for_control_flow_protection() {
    local marks='x86 feature: IBT, SHSTK' file
    [[ $KESTA_PROCESSOR != aarch64 ]] || marks='AArch64 feature: BTI, PAC'
    install_everything
    for file in "$library" "${stand_ins[@]}" "${cores[@]}"; do
        if [[ $KESTA_FLOOR == ON && " ${cores[*]} " != *" $file "* ]]; then
            expect_matches "notes of $file" "$marks" "$(readelf --notes --wide "$file")"
        else
            "$OBJDUMP" --disassemble --no-show-raw-insn "$file" >code
            grep -qE 'endbr64|paciasp|bti' code || fail "own code in $file has no landing pads"
        fi
    done
}

# The commands hold code of Debian's static libraries, which is not marked, so the whole is not.
# Their own code is protected nonetheless.
test_commands_own_code_begins_with_landing_pads() {
    local name first
    for name in ukey softkey; do
        first=$("$OBJDUMP" --disassemble=main --no-show-raw-insn "$build/bin/$name" |
            sed -n '/<main>:$/{n;p}')
        expect_matches "first instruction of main in $name" 'endbr64|paciasp|bti|hint' "$first"
    done
}

# needed FILE: the libraries that it loads. Not the loader, which AArch64 names for the stack
# protector's value.
needed() {
    readelf --dynamic --wide "$1" | sed -n '/\[ld-linux/d; s/.*(NEEDED).*\[\(.*\)\]$/\1/p' |
        LC_ALL=C sort | xargs
}

test_libraries_and_command_load_on_the_oldest_runtime() {
    install_everything
    if [[ $KESTA_FLOOR == ON ]]; then
        "$checker" "$library" prefix/bin/ukey "${stand_ins[@]}" "${cores[@]}"
        # The old userlands have an OpenSSL of another name.
        expect_equal "what ukey loads" \
            "libc.so.6 libdl.so.2 libgcc_s.so.1 libpthread.so.0 libstdc++.so.6" "$(needed prefix/bin/ukey)"
    elif "$checker" "$library" prefix/bin/ukey; then
        fail "a build without KESTA_RUNTIME_FLOOR passes for one with it"
    fi
}

test_plainly_linked_program_does_not_pass_for_an_old_one() {
    echo 'int main(void) { return 0; }' >plain.c
    "$CC" plain.c -o plain
    if "$checker" plain 2>found; then fail "it passes"; fi
    expect_matches reason '__libc_start_main asks for GLIBC_2\.34, above GLIBC_2\.28' "$(<found)"
}

run_paths() { readelf --dynamic --wide "$1" | sed -nE 's/.*\((RPATH|RUNPATH)\).*\[(.*)\]$/\2/p'; }

test_commands_look_for_libraries_in_their_installation_and_the_system_alone() {
    local file
    install_everything
    expect_equal "where ukey looks" "\$ORIGIN/../$libdir" "$(run_paths prefix/bin/ukey)"
    # The audit module tells the loader where the recorder's libraries find what they need.
    for file in prefix/bin/softkey "${stand_ins[@]}" "${cores[@]}"; do
        expect_equal "where $file looks" "" "$(run_paths "$file")"
    done
}

# Whatever prefix it is, and moved since; nothing in the environment helps.
test_installed_commands_find_the_installed_library() {
    local emulator=() said
    need bwrap
    [[ -z ${KESTA_EMULATOR:-} ]] || emulator=("$KESTA_EMULATOR")
    install_everything
    mkdir "a place"
    mv prefix "a place/moved"
    said=$(env -u LD_LIBRARY_PATH "$source_tree/tests/support/in-namespace" \
        "a place/moved/$libdir/kesta-softkey" "$PWD" \
        "${emulator[@]}" "a place/moved/bin/ukey" check-install) || fail "ukey: $said"
    expect_matches "what ukey says" "can be listed" "$said"
    said=$(env -u LD_LIBRARY_PATH "a place/moved/bin/ukey-sandbox" --log log --home key --print \
        "${emulator[@]}" "a place/moved/bin/ukey" check-install 2>&1) || fail "in the sandbox: $said"
    expect_matches "what is used" "library +$PWD/a place/moved/$libdir" "$said"
}

test_installed_command_finds_the_installed_recorder() {
    local run
    need bwrap
    install_everything
    mkdir "a place"
    mv prefix "a place/moved"
    IFS=';' read -ra run <<<"${KESTA_EMULATOR:+$KESTA_EMULATOR;}a place/moved/bin/ukey"
    env -u LD_LIBRARY_PATH "$source_tree/tests/support/in-namespace" \
        "a place/moved/$libdir/kesta-softkey" "$PWD" \
        "${run[@]}" record -o case.rec -- "${run[@]}" check-install >said 2>&1 || fail "$(<said)"
    "${run[@]}" trace show --json case.rec >shown
    grep -q '"function":"CheckDriverIntegrity"' shown || fail "no call was recorded" "$(<said)" "$(<shown)"
}

# As a client's developer has it: nothing but what is installed, at a place of its own.
test_installed_sandbox_records_and_the_recording_replays_without_a_key() {
    local ukey emulator=()
    need bwrap
    [[ -z ${KESTA_EMULATOR:-} ]] || emulator=("$KESTA_EMULATOR")
    install_everything
    mkdir "a place"
    mv prefix "a place/moved"
    ukey=("${emulator[@]}" "$PWD/a place/moved/bin/ukey")
    # shellcheck disable=SC2016
    env -u LD_LIBRARY_PATH KESTA_SOFTKEY_PIN=135790 "a place/moved/bin/ukey-sandbox" --log log --fresh \
        --key SHIPPED1 -- "${ukey[@]}" record --full -o case.rec -- "${ukey[@]}" info >recorded 2>said ||
        fail "$(<said)"
    grep -q SHIPPED1 recorded || fail "no key was there" "$(<recorded)" "$(<said)"
    env -u LD_LIBRARY_PATH KESTA_SOFTKEY_HOME="$PWD/none" "${ukey[@]}" replay case.rec -- "${ukey[@]}" info \
        >replayed 2>said || fail "it does not replay" "$(<said)"
    expect_same_lines "replayed" recorded replayed
}

test_links_of_the_installed_pages_lead_somewhere() {
    local pages=prefix/share/doc/libkesta-unified-zrkukey-dev name
    install_everything
    for name in enrol install-certificates sign decrypt events diagnose; do
        [[ -s $pages/docs/$name.md ]] || fail "the page $name is missing"
        [[ -s $pages/docs/zh/$name.md ]] || fail "the Chinese page $name is missing"
    done
    for name in ukey softkey ukey-sandbox; do
        [[ -s prefix/share/man/zh_CN/man1/$name.1 ]] || fail "the Chinese man page of $name is missing"
    done
    "$source_tree/tests/docs/check-links" "$pages" || fail "links are broken"
    "$source_tree/tests/docs/check-links" prefix/share/doc/kesta-softkey || fail "links are broken"
}

test_nothing_is_laid_down_at_the_makers_place() {
    local folder
    DESTDIR=$PWD/root install_parts /usr runtime development tools softkey
    folder=$(find root -mindepth 1 -maxdepth 1 -printf '%f ')
    expect_equal "folders at the root" "usr " "$folder"
    if grep -rlE 'libKestaZRK|libR7Token' root/usr/lib/*-linux-gnu/lib* root/usr/lib/lib* 2>/dev/null |
        grep -v libkesta_unified_zrkukey.so; then
        fail "a library in the system's folder has the name of one of the maker's"
    fi
    if find root \( -name postinst -o -name preinst \) | grep .; then
        fail "something would run on installation"
    fi
}

run_claims "$@"
