# What the tests of ukey doctor share. KESTA_FIXTURES holds the libraries that the systems are made
# of, KESTA_CLIENT_LIBRARY is the client library.
# shellcheck shell=bash
# shellcheck source=tests/ukey/support.bash
. "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/support.bash"

directory=opt/apps/com.zrk.uoskesta/files/bin

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

