#!/usr/bin/env bash
# Exceptions cross between the library that ships and peers that the plain compiler links to the
# system's shared C++ runtime.
# shellcheck source=tests/support/claims.bash
. "$(dirname "$(readlink -f "$0")")/../support/claims.bash"
# shellcheck source=tests/install/installation.bash
. "$(dirname "$(readlink -f "$0")")/installation.bash"

throwing=$source_tree/tests/install/throwing

# Peers at prefix/LIBDIR/kesta_unified_zrkukey, which run_client shows at the install directory.
make_peers() {
    local place=$PWD/prefix/$libdir/kesta_unified_zrkukey
    install_parts "$PWD/prefix" runtime development
    for name in token event; do
        local file=libKestaZRK.so
        [[ $name == token ]] || file=libR7Token_KESTA.so
        "$CXX" -std=c++17 -shared -fPIC -I"$source_tree/include" "$throwing/${name}_library.cpp" \
            -Wl,-soname,"$file" -o "$place/$file"
    done
    "$CXX" -std=c++17 -Iprefix/include "$throwing/client.cpp" "-Lprefix/$libdir" \
        -lkesta_unified_zrkukey -Wl,-rpath-link,"$place" -o client
    readelf --dynamic --wide "$place/libKestaZRK.so" >peer.dynamic
}

expected='token library: std::runtime_error VerifyPIN
event library: 0
library: an exception of its own
library: std::bad_alloc'

test_exceptions_cross_to_and_from_peers_with_the_shared_runtime() {
    make_peers
    grep -q 'libstdc++.so.6' peer.dynamic || fail "the peer is not linked to the shared runtime"
    expect_equal "what reaches the client" "$expected" "$(run_client "$PWD/prefix" ./client)"
}

run_claims "$@"
