# What the tests of ukey doctor share. KESTA_FIXTURES holds the libraries that the systems are made
# of, KESTA_CLIENT_LIBRARY is the client library.
# shellcheck shell=bash
# shellcheck source=tests/ukey/support.bash
. "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/support.bash"

directory=opt/apps/com.zrk.uoskesta/files/bin

shape='{"ok":"boolean","verdict":"text","problems":"number","warnings":"number","root":"string","paths":["text"],
    "findings":[{"id":"text","severity":"text","subject":"text","detail":"text","remedy?":"text"}],
    "entryPoints":[{"library":"text","name":"text","found":"boolean"}]}'

# A system below the folder root where all is well.
healthy_system() {
    umask 022
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
    mkdir -p root/etc/udev/rules.d
    echo 'SUBSYSTEM=="usb", ATTR{idVendor}=="2E5A", MODE="0666"' >root/etc/udev/rules.d/60-maker.rules
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


# The superuser may do what others may not: from here on the command runs as somebody else.
as_an_ordinary_user() {
    ((EUID == 0)) || return 0
    need setpriv
    chmod 755 "$scratch"
    diagnose() { setpriv --reuid 65534 --clear-groups "$ukey_command" doctor --root root "$@"; }
}

# as_superuser COMMAND...: as the one of a user namespace, who may do what this user may.
as_superuser() {
    need bwrap
    bwrap --unshare-user --uid 0 --gid 0 --dev-bind / / --tmpfs /root "$@"
}

# remedy ID: that of the finding in the JSON of the last call of finding.
remedy() {
    local id=$1
    diagnose --json >found || true
    jq -r --arg id "$id" '.findings[] | select(.id == $id and .severity != "fine") | .remedy' found
}

# mends ID REGEX: what matches in the finding's remedy is a command, and when it was carried out the
# finding is gone.
mends() {
    local command
    command=$(remedy "$1" | grep -oE "$2" | sed 's/sudo //g')
    [[ -n $command ]] || fail "no such remedy for $1" "$(remedy "$1")"
    as_superuser bash -ec "$command" >/dev/null || fail "the remedy fails: $command"
    [[ -z $(remedy "$1") ]] || fail "still there after: $command" "$(<found)"
}

# verdict REGEX: the last line says so, and so does the JSON.
verdict() {
    diagnose >found || true
    expect_matches "last line" "$1" "$(tail -n 1 found)"
    expect_equal "JSON" "$(tail -n 1 found)" "$({ diagnose --json || true; } | jq -r .verdict)"
}
