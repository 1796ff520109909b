#!/usr/bin/env bash
# What the dynamic linker and clients see of the shipped file, compared with the header and the
# version script. KESTA_LIBRARY is the file, KESTA_SOURCE the source tree.
# shellcheck source=tests/support/claims.bash
. "$(dirname "$(readlink -f "$0")")/../../support/claims.bash"

library=${KESTA_LIBRARY:?names the shared library}
source_tree=${KESTA_SOURCE:?names the source tree}
header=$source_tree/include/kesta_unified_zrkukey.h
version_script=$source_tree/src/exports.map
install_directory=/opt/apps/com.zrk.uoskesta/files/bin

header_functions() {
    sed -nE 's/^KESTA_API [^(]*[ *]([A-Za-z_0-9]+)\(.*/\1/p' "$header"
}

header_variables() {
    sed -nE 's/^extern ("C" )?KESTA_API .*[ *]([A-Za-z_0-9]+);/\2/p' "$header"
}

# Names of the version script's global section.
script_symbols() {
    sed -E 's/#.*//; /local:/,$d' "$version_script" | tr ';' '\n' | sed -nE 's/^ *([A-Za-z_0-9]+)$/\1/p'
}

# Every defined dynamic symbol that others can see: type, size, name. Linkers for AArch64 leave
# local symbols of sections in the table, which have no name for anyone.
dynamic_symbols() {
    need readelf
    readelf --dyn-syms --wide "$library" |
        awk '$1 ~ /^[0-9]+:$/ && $5 != "LOCAL" && $7 != "UND" {sub(/@.*/, "", $8); print $4, $3, $8}'
}

dynamic_names() {
    dynamic_symbols | cut -d' ' -f3
}

imported_names() {
    need readelf
    readelf --dyn-syms --wide "$library" |
        awk '$1 ~ /^[0-9]+:$/ && $7 == "UND" {sub(/@.*/, "", $8); print $8}'
}

dynamic_entries() {
    need readelf
    readelf --dynamic --wide "$library" | sed -nE "s/.*\($1\).*\[(.*)\].*/\1/p"
}

test_header_declares_no_function_twice() {
    expect_equal "functions that are declared twice" "" "$(header_functions | sort | uniq -d)"
}

test_header_and_version_script_name_the_same_plain_symbols() {
    { header_functions && header_variables; } | sort >header
    script_symbols | grep -v '^_Z' | sort >version-script
    expect_same_lines "the header and the version script differ" header version-script
}

test_version_script_and_symbol_table_agree() {
    script_symbols | sort >version-script
    dynamic_names | sort >symbol-table
    expect_same_lines "the version script and the symbol table differ" version-script symbol-table
}

test_symbols_with_cxx_linkage_are_the_eleven_agreed_ones() {
    need c++filt
    local text='std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> >'
    sort >agreed <<TEXT
LogEntry(char const*, char const*, ...)
LogHex(char const*, void const*, int)
X_getCurrentSlots()
X_getMediaId($text&, _S_DEV_CONFIG*)
CommonFunction::init()
CommonFunction::FreeFunc()
CommonFunction::memcpy_s(void*, unsigned long, void const*, unsigned long)
CommonFunction::GetSubStringCount($text const&, $text const&)
CommonFunction::MB2MB(unsigned int, unsigned char const*, unsigned int, unsigned char**, unsigned int*)
CommonFunction::find_dir_file(char const*, std::vector<$text, std::allocator<$text > >&)
CommonFunction::GetBatchCertDataType(LGN::CStringT<char, LGN::StrTraitLGN<char, LGN::ChTraitsEx<char> > >)
TEXT
    dynamic_names | { grep '^_Z' || true; } | c++filt | sort >symbol-table
    expect_same_lines "symbols with C++ linkage" agreed symbol-table
}

test_functions_are_functions_and_variables_have_their_sizes() {
    header_functions | sed 's/^/FUNC /' | sort >header
    dynamic_symbols | awk '$1 == "FUNC" && $3 !~ /^_Z/ {print $1, $3}' | sort >symbol-table
    expect_same_lines "functions" header symbol-table
    printf 'OBJECT %s\n' '4 G_LastError' '48 g_WaitEventSlotMap' '1 g_initFlag' | sort >agreed
    dynamic_symbols | { grep -v '^FUNC' || true; } | sort >symbol-table
    expect_same_lines "variables" agreed symbol-table
}

test_soname_is_the_file_name() {
    expect_equal "SONAME" libkesta_unified_zrkukey.so "$(dynamic_entries SONAME)"
}

test_runpath_is_the_install_directory_alone() {
    expect_equal RUNPATH "$install_directory" "$(dynamic_entries RUNPATH)"
    expect_equal RPATH "" "$(dynamic_entries RPATH)"
}

test_needs_the_event_library_and_the_runtime_alone() {
    local needed others
    needed=$(dynamic_entries NEEDED)
    grep -qx 'libR7Token_KESTA.so' <<<"$needed" || fail "libR7Token_KESTA.so is not needed: $needed"
    others=$(grep -vxE 'libR7Token_KESTA\.so|lib(c|m|stdc\+\+)\.so\.6|lib(dl|pthread)\.so\.[02]|libgcc_s\.so\.1|ld-linux-[a-z0-9-]+\.so\.[12]' \
        <<<"$needed" || true)
    expect_equal "needed beyond the C and C++ runtime" "" "$others"
}

test_event_library_is_used_by_its_five_entry_points() {
    printf 'ValtoT_%s\n' ContextFinal ContextInit GetDeviceInfo GetSlotList WaitForEvent >agreed
    imported_names | { grep '^ValtoT_' || true; } | sort >imported
    expect_same_lines "entry points of the event library" agreed imported
}

test_relocations_are_read_only_after_loading() {
    need readelf
    expect_matches "segments" GNU_RELRO "$(readelf --segments --wide "$library")"
    expect_matches "dynamic section" BIND_NOW "$(readelf --dynamic --wide "$library")"
}

test_no_segment_is_writable_and_executable() {
    need readelf
    readelf --segments --wide "$library" | grep -E '^ +(LOAD|GNU_STACK)' >segments
    grep -q GNU_STACK segments || fail "no GNU_STACK segment: the stack would be executable"
    if grep -E 'RWE' segments; then
        fail "a segment is writable and executable"
    fi
    if readelf --dynamic --wide "$library" | grep TEXTREL; then
        fail "the library has text relocations"
    fi
}

test_stack_protector_and_checked_calls_are_in_use() {
    imported_names >imported
    grep -qx __stack_chk_fail imported || fail "no function guards its stack"
    # A debug build leaves out the checks, which need optimised code.
    [[ ${KESTA_BUILD_TYPE:-} == Debug ]] ||
        grep -qE '^__.*_chk$' <(grep -vx __stack_chk_fail imported) ||
        fail "no call of the C library is a checked one"
}

test_every_exported_function_begins_with_a_landing_pad() {
    local objdump=${OBJDUMP:-objdump}
    need "$objdump"
    "$objdump" --disassemble --no-show-raw-insn "$library" >code
    dynamic_symbols | awk '$1 == "FUNC" {print $3}' | sort >functions
    # The instruction below a function's label: x86-64 with CET, or AArch64 with BTI or return
    # address signing, which is a landing pad as well.
    awk '/^[0-9a-f]+ <.*>:$/ {gsub(/[<>:]/, "", $2); name = $2; next}
         name && /\t(endbr64|bti\tc|paciasp|hint\t#(34|25))/ {print name}
         {name = ""}' code | sort >protected
    comm -23 functions protected >bare
    [[ -s functions && ! -s bare ]] || fail "functions without a landing pad" "$(<bare)"
}

run_claims "$@"
