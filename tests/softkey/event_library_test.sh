#!/bin/bash
# event_library_test.sh LIBRARY: what the linker made of the event library.
set -u
library=$1

complain() {
    printf 'event_library_test: %s\n' "$1" >&2
    exit 1
}

names=$(nm -D --defined-only "$library") || complain "nm cannot read $library"
wanted='ValtoT_ContextFinal
ValtoT_ContextInit
ValtoT_GetDeviceInfo
ValtoT_GetSlotList
ValtoT_WaitForEvent'
names=$(awk '{ print $3 }' <<<"$names" | sort)
[ "$names" = "$wanted" ] || complain "it exports these names: $names"

dynamic=$(readelf -dW "$library") || complain "readelf cannot read $library"
grep -q 'SONAME.*\[libR7Token_KESTA\.so\]' <<<"$dynamic" || complain "another SONAME: $dynamic"
grep -q 'SYMBOLIC' <<<"$dynamic" || complain "not linked with -Bsymbolic: $dynamic"
# The key's cryptography belongs to the token library; a client that only waits does not load it.
if grep -q 'NEEDED.*libcrypto' <<<"$dynamic"; then complain "it needs libcrypto"; fi
