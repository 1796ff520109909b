#!/usr/bin/env bash
# Tables in a terminal, measured by the terminal itself: tmux tells in which column the cursor stands
# behind each row's first cells. tmux knows UTF-8 alone: what is said in GB18030 is converted on its way,
# and measured a second time with the widths that this locale gives.
# shellcheck source=tests/language/support.bash
. "$(dirname "$(readlink -f "$0")")/support.bash"

# A server that ends may still take what is meant for the next one: each has a socket of its own.
new_session() {
    need tmux
    session=$(mktemp -u "$PWD/tmux.XXXXXX")
    tmux -S "$session" -f /dev/null new-session -d -x 160 -y 60 "$1"
}

# in_terminal FILE: shows the file's text in a terminal; leaves its screen in "screen".
in_terminal() {
    new_session "cat '$1'; touch '$PWD/shown'; sleep 60"
    until_true "tmux shows it" test -e shown
    rm shown
    tmux -S "$session" capture-pane -p | sed -e :a -e '/^\n*$/{$d;N;ba' -e '}' >screen
    tmux -S "$session" kill-server
}

# columns FILE: the terminal's column behind the first cell of each line and the blanks that follow it.
columns() {
    cat >measure <<'TEXT'
while IFS= read -r -u 3 line; do
    [[ $line =~ ^([^\ ]+(\ [^\ ]+)*\ \ +) ]] || continue
    printf '\r\033[K%s\033[6n' "${BASH_REMATCH[1]}"
    IFS=';' read -rs -d R _ column </dev/tty
    echo "$column" >&4
done 3<"$1" 4>"$2"
touch "$2.done"
TEXT
    new_session "LC_ALL=C.UTF-8 bash measure '$1' '$PWD/found'; sleep 60"
    until_true "tmux measures it" test -e found.done
    tmux -S "$session" kill-server
    rm found.done
    sort -u found
}

# The same by the widths of the locale.
columns_in() {
    in_locale "$1" python3 -c '
import ctypes, locale, re, sys
locale.setlocale(locale.LC_CTYPE, "")
width = ctypes.CDLL(None).wcwidth
width.argtypes = [ctypes.c_wchar]
for line in open(sys.argv[1], encoding="UTF-8"):
    cell = re.match("[^ \n]+( [^ ]+)*  +", line)
    if cell:
        print(1 + sum(width(c) for c in cell.group()))' "$2" | sort -u
}

tables() {
    softkey create --serial SK1 --label 财务处 >/dev/null
    softkey create --serial SK0002 --label 'Second floor' --removed >/dev/null
    KESTA_SOFTKEY_HOME=$scratch/key in_locale "$1" "$KESTA_BIN/softkey" list >list.txt
    KESTA_SOFTKEY_HOME=$scratch/key in_locale "$1" "$KESTA_BIN/softkey" show SK1 >show.txt
    softkey delete SK0002 --yes >/dev/null
    in_sandbox env LC_ALL="$1" "$ukey_command" info >info.txt
    in_sandbox env LC_ALL="$1" "$ukey_command" error 0x5B21 >error.txt
    in_locale "$1" "$ukey_command" doctor --no-key --root "$scratch" | LC_ALL=C grep -av '^ ' >doctor.txt || true
    softkey delete SK1 --yes >/dev/null
    sed -i '/^$/,$d' show.txt doctor.txt
}

test_tables_keep_their_columns_in_a_UTF8_terminal() {
    local table
    tables "$utf8"
    for table in list show info error doctor; do
        mv "$table.txt" "$table"
        is_chinese "$table" || fail "$table is not Chinese"
        expect_equal "columns of $table: $(<"$table")" 1 "$(columns "$table" | wc -l)"
        expect_equal "by the locale's widths" 1 "$(columns_in "$utf8" "$table" | wc -l)"
    done
    in_terminal list
    expect_same_lines "on the screen" list screen
    printf '一  x\nab  x\nabc  x\n' >uneven
    expect_equal "an uneven table is seen" 2 "$(columns uneven | wc -l)"
}

test_tables_keep_their_columns_in_a_GB18030_terminal() {
    local table
    tables "$gb18030"
    for table in list show info error doctor; do
        mv "$table.txt" "$table"
        iconv -f GB18030 -t UTF-8 "$table" >converted
        expect_equal "columns of $table: $(<converted)" 1 "$(columns converted | wc -l)"
        expect_equal "by the locale's widths" 1 "$(columns_in "$gb18030" converted | wc -l)"
    done
    iconv -f GB18030 -t UTF-8 list >converted
    in_terminal converted
    expect_same_lines "on the screen" converted screen
}

run_claims "$@"
