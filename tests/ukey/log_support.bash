# What the tests of ukey log share.
# shellcheck shell=bash
# shellcheck source=tests/ukey/support.bash
. "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/support.bash"

# shellcheck disable=SC2034  # used where this is sourced
call_shape='{"operation":"text","process":"number","thread":"number","state":"text",
    "begin?":"text","end?":"text","microseconds?":"number","code?":"number","codeText?":"text",
    "message?":"string","records?":[{"time":"text","tag":"text","body":"string"}]}'

# record TIME TAG BODY [PROCESS [THREAD]]
record() {
    printf '[%s] %s: (Process is %s, thread is %s)\r\n\t[%s]\r\n' "$1" "$2" "${4:-41}" "${5:--7}" "$3"
}

some_log() {
    record 21,09:00:00.000 GetDllVersion 'Begin pnVersionLen = 00000000'
    record 21,09:00:00.012 GetDllVersion 'End G_LastError: 00000000'
    record 21,09:00:01.000 ChangePin Begin
    record 21,09:00:01.4567 szSN: 434C49
    record 21,09:00:04.500 ChangePin 'End G_LastError: FFFFFF9B'
    record 21,09:00:05.000 'CZRKUSBKey::ImportEncX509Cert  strPriKeyTemp:' 'strPriKeyTemp:SECRETSECRET'
}

# awaited TEXT: it appears in the file followed within thirty seconds.
awaited() {
    local tries
    for ((tries = 0; tries < 300; ++tries)); do
        ! grep -q -- "$1" followed || return 0
        sleep 0.1
    done
    fail "never saw: $1" "$(<followed)"
}
