#!/usr/bin/env bash
# What a build for old userlands puts in place of newer functions and start files.
# shellcheck source=tests/support/claims.bash
. "$(dirname "$(readlink -f "$0")")/../support/claims.bash"
# shellcheck source=tests/install/installation.bash
. "$(dirname "$(readlink -f "$0")")/installation.bash"

floor=$source_tree/packaging/floor
emulator=()
[[ -z ${KESTA_EMULATOR:-} ]] || emulator=("$KESTA_EMULATOR")

test_stand_ins_do_what_the_newer_functions_do() {
    "$CC" -std=c11 -O1 -pthread "$source_tree/tests/install/floor/stand_ins.c" "$floor/compat.c" \
        "$floor/clock_wait.c" -o stand_ins
    # Ours, and not the C library's, are asked.
    readelf --symbols --wide stand_ins >symbols
    for name in stat fstatat pthread_cond_clockwait; do
        grep -qE "FUNC .* [0-9]+ $name\$" symbols || fail "$name is not in the program"
    done
    "${emulator[@]}" ./stand_ins
}

# make_import_libraries: with an archive of the stand-ins, as the build makes them.
make_import_libraries() {
    local source
    for source in compat.c single_threaded.c clock_wait.c heap_figures.c libstdcxx.cpp; do
        "$CXX" -x "$([[ $source == *.cpp ]] && echo c++ || echo c)" -O1 -fPIC -fvisibility=hidden \
            -c "$floor/$source" -o "$source.o"
    done
    ar rc libstand_ins.a ./*.o
    "$CC" -std=c11 -O1 -fPIC -fvisibility=hidden -c "$floor/program_start.c"
    "$CC" -std=c11 -O1 -fPIC -fvisibility=hidden -c "$floor/module_end.c"
    "$floor/make-stubs" "$PWD/libraries" "$PWD/libstand_ins.a" "$CXX"
}

# link_for_the_floor SOURCE: the program SOURCE without its suffix.
link_for_the_floor() {
    "$CXX" -std=c++17 -nostartfiles -L"$PWD/libraries" program_start.o module_end.o "$1" \
        -o "${1%.*}"
}

test_program_runs_its_constructors_and_destructors() {
    make_import_libraries
    cat >program.cpp <<'TEXT'
#include <iostream>
#include <sstream>
#include <stdexcept>
struct Object {
    Object() { std::cout << "made\n"; }
    ~Object() { std::cout << "gone\n"; }
} object;
int main(int count, char** arguments) {
    try {
        std::stringstream text;
        text << count << arguments[1];
        throw std::runtime_error(text.str());
    } catch (const std::exception& error) {
        std::cout << error.what() << '\n';
    }
    return 7;
}
TEXT
    link_for_the_floor program.cpp
    "$source_tree/packaging/check-symbol-versions" program
    local status=0 said
    said=$("${emulator[@]}" ./program argument) || status=$?
    expect_equal "exit status" 7 "$status"
    expect_equal output "made 2argument gone" "$(xargs <<<"$said")"
}

test_newer_function_is_an_error_that_names_it() {
    make_import_libraries
    echo 'extern "C" int pidfd_open(int, unsigned); int main() { return pidfd_open(1, 0); }' >new.cpp
    if link_for_the_floor new.cpp 2>said; then fail "it links"; fi
    grep -q 'undefined reference to .pidfd_open' said || fail "it fails otherwise" "$(<said)"
}

# A program that copies a variable of the C library must get all of its names.
test_names_of_one_variable_stay_one() {
    make_import_libraries
    echo 'extern "C" char** environ; extern "C" int puts(const char*);
          int main() { return environ == nullptr || puts(environ[0]) < 0; }' >names.cpp
    link_for_the_floor names.cpp
    expect_equal environment "NAME=value" "$(env -i NAME=value "${emulator[@]}" ./names | head -n 1)"
}

# As the packages have it, whatever build this is a test of.
test_released_library_loads_on_the_oldest_runtime() {
    local options=()
    [[ -z ${KESTA_TOOLCHAIN:-} ]] || options=("-DCMAKE_TOOLCHAIN_FILE=$KESTA_TOOLCHAIN")
    cmake -S "$source_tree" -B released -DCMAKE_BUILD_TYPE=Release -DKESTA_RUNTIME_FLOOR=ON \
        "${options[@]}"
    cmake --build released --target kesta_unified_zrkukey --parallel 2
    "$source_tree/packaging/check-symbol-versions" released/lib/libkesta_unified_zrkukey.so
}

run_claims "$@"
