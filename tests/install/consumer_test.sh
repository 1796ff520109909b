#!/usr/bin/env bash
# A C and a C++ client are built against an installation, by CMake and by pkg-config, and run.
# shellcheck source=tests/support/claims.bash
. "$(dirname "$(readlink -f "$0")")/../support/claims.bash"
# shellcheck source=tests/install/installation.bash
. "$(dirname "$(readlink -f "$0")")/installation.bash"

clients=$source_tree/tests/install/consumer

# An installation that has been moved since: nothing in it may point back.
make_installation() {
    install_parts "$PWD/first" runtime development
    mv first prefix
}

configure_consumer() {
    local options=()
    [[ -z ${KESTA_TOOLCHAIN:-} ]] || options+=("-DCMAKE_TOOLCHAIN_FILE=$KESTA_TOOLCHAIN")
    cmake -S "$clients" -B consumer -DCMAKE_PREFIX_PATH="$PWD/prefix" \
        -DCMAKE_C_COMPILER="$CC" -DCMAKE_CXX_COMPILER="$CXX" \
        -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF "${options[@]}" "$@"
}

flags_of_pkg_config() {
    need pkg-config
    PKG_CONFIG_LIBDIR=prefix/$libdir/pkgconfig pkg-config "$@" kesta_unified_zrkukey
}

expect_version_printed() {
    local said
    said=$(run_client "$PWD/prefix" "$1")
    expect_matches "output of $1" '^version [0-9.]+$' "$said"
}

test_c_and_cpp_clients_build_by_find_package() {
    make_installation
    configure_consumer -DWANTED_VERSION="$KESTA_VERSION"
    cmake --build consumer 2>&1 | tee build.log
    if grep -i warning build.log; then fail "building the clients warns"; fi
    expect_version_printed consumer/client_c
    expect_version_printed consumer/client_cpp
}

test_find_package_refuses_another_major_version() {
    make_installation
    if configure_consumer -DWANTED_VERSION=10.0 >configure.log 2>&1; then
        fail "version 10.0 was found"
    fi
    grep -q 'compatible with requested version' configure.log ||
        fail "configuring failed otherwise" "$(<configure.log)"
}

test_c_client_builds_by_pkg_config() {
    local flags
    make_installation
    read -ra flags < <(flags_of_pkg_config --cflags --libs)
    "$CC" -std=c11 -Werror "$clients/client.c" "${flags[@]}" -o client
    expect_version_printed ./client
}

test_cpp_client_builds_by_pkg_config() {
    local flags
    make_installation
    read -ra flags < <(flags_of_pkg_config --cflags --libs)
    "$CXX" -std=c++17 -Werror "$clients/client.cpp" "${flags[@]}" -pthread -o client
    expect_version_printed ./client
}

# docs/deploy.md: CMake tells what it builds where the library is; for pkg-config the link line does.
test_clients_find_the_library_below_its_prefix() {
    local flags
    make_installation
    configure_consumer
    cmake --build consumer >build.log
    read -ra flags < <(flags_of_pkg_config --cflags --libs)
    "$CC" -std=c11 "$clients/client.c" "${flags[@]}" "-Wl,-rpath,$PWD/prefix/$libdir" -o client
    for program in consumer/client_c consumer/client_cpp ./client; do
        expect_matches "output of $program" '^version [0-9.]+$' "$(run_client "$PWD/prefix" "$program" "")"
    done
    "$CC" -std=c11 "$clients/client.c" "${flags[@]}" -o lost
    if run_client "$PWD/prefix" ./lost "" >said 2>&1; then fail "a client finds it without being told"; fi
    grep -q 'libkesta_unified_zrkukey.so: cannot open' said || fail "it fails otherwise" "$(<said)"
}

test_pkg_config_tells_the_version() {
    make_installation
    expect_equal version "$KESTA_VERSION" "$(flags_of_pkg_config --modversion)"
}

# Without what the package files say, the linker misses the maker's library: the tests above would
# prove less than they seem to if it did not.
test_plain_flags_need_the_makers_library() {
    make_installation
    if "$CC" "$clients/client.c" -Iprefix/include "-Lprefix/$libdir" -lkesta_unified_zrkukey \
        -o client 2>link.log; then
        fail "the client links without the maker's library"
    fi
    grep -q libR7Token_KESTA.so link.log || fail "linking failed otherwise" "$(<link.log)"
}

test_library_keeps_its_unversioned_name() {
    make_installation
    find "prefix/$libdir" -mindepth 1 -maxdepth 1 -name 'lib*' -printf '%f %y\n' >found
    expect_equal libraries "libkesta_unified_zrkukey.so f" "$(<found)"
}

test_runtime_part_holds_the_library_alone() {
    install_parts "$PWD/prefix" runtime
    expect_equal files "./$libdir/libkesta_unified_zrkukey.so" "$(cd prefix && find . -type f)"
}

test_headers_are_those_of_the_source_tree() {
    make_installation
    diff -r "$source_tree/include" prefix/include
}

run_claims "$@"
