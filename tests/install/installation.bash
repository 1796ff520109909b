# Sourced by the tests of an installation, behind claims.bash. KESTA_BUILD is the build folder that
# is installed from, KESTA_SOURCE the source tree.
# shellcheck shell=bash

build=${KESTA_BUILD:?names the build folder}
source_tree=${KESTA_SOURCE:?names the source tree}
libdir=${KESTA_LIBDIR:?names the folder of libraries below the prefix}

# install_parts PREFIX COMPONENT...: as the packages do, without what a debugger needs.
install_parts() {
    local prefix=$1 component
    shift
    need cmake
    for component in "$@"; do
        cmake --install "$build" --strip --prefix "$prefix" --component "$component" >>install.log
    done
}

# run_client PREFIX PROGRAM [LIBRARY-PATH]: with the names of the event library in its place, so that the library
# can be loaded where the maker's files are not.
run_client() {
    local prefix=$1 program=$2 library_path=${3-$1/$libdir} emulator=()
    need bwrap
    [[ -z ${KESTA_EMULATOR:-} ]] || emulator=("$KESTA_EMULATOR")
    "$source_tree/tests/support/in-namespace" "$prefix/$libdir/kesta_unified_zrkukey" "$PWD" \
        env "LD_LIBRARY_PATH=$library_path" "${emulator[@]}" "$program"
}
