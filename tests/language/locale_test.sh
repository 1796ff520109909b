#!/usr/bin/env bash
# The person's language and charset, as every program takes them.
# shellcheck source=tests/language/support.bash
. "$(dirname "$(readlink -f "$0")")/support.bash"

softkey_command=$KESTA_BIN/softkey

# Each command's path: "ukey sign", "softkey list" ...
paths() {
    local program name
    for program in ukey softkey; do
        echo "$program"
        for name in $(commands_of "$program"); do
            echo "$program $name"
            commands_of "$program" "$name" | sed "s/^/$program $name /"
        done
    done
}

commands_of() {
    "$KESTA_BIN/$1" "${@:2}" --help |
        sed -n '/^Exit status:/q; /^Examples:/q; s/^  \([a-z][a-z-]*\)  .*/\1/p'
}

# Lines of a Chinese help that are not Chinese: all that may be so are examples without a remark, and
# a long option whose words stand below it.
untranslated() {
    awk '/^示例：$/ { example = 1; next }
        /^$/ { example = 0; next }
        /[^\x01-\x7f]/ { next }
        example && !/[^ ]   +[^ ]/ { next }
        /^  -[^ ]*( [^ ]+)?$/ { next }
        { print }' "$1"
}

test_help_of_every_subcommand_is_Chinese_to_the_last_line() {
    local path words count=0
    while read -ra words; do
        path=${words[*]}
        ends 0 in_locale "$utf8" "$KESTA_BIN/${words[0]}" "${words[@]:1}" --help
        expect_equal "$path --help" "" "$(untranslated out)"
        is_chinese out || fail "$path --help is not Chinese"
        count=$((count + 1))
    done < <(paths)
    ((count > 60)) || fail "only $count commands were looked at"
    printf '选项：\n  --one                      Some words\n' >english
    expect_equal "an English line" "  --one                      Some words" "$(untranslated english)"
}

test_language_is_chosen_as_every_program_does() {
    local wanted setting
    local -A words=([chinese]=日常使用 [english]=Everyday)
    while read -r wanted setting; do
        # shellcheck disable=SC2086
        env -u LC_ALL $setting "$KESTA_BIN/ukey" --help >out
        grep -q "${words[$wanted]}" out || fail "$setting: not $wanted"
    done <<TEXT
english -u LANG
chinese LANG=$utf8
chinese LC_MESSAGES=$utf8 LANG=C
chinese LC_MESSAGES=$utf8 LC_CTYPE=$utf8
english LC_MESSAGES=C LANG=$utf8
chinese LC_ALL=$utf8 LC_MESSAGES=C LANG=C
english LC_ALL=C LANG=$utf8 LANGUAGE=zh_CN
english LC_ALL=$utf8 LANGUAGE=en
chinese LC_ALL=$utf8 LANGUAGE=fr:zh_CN
chinese LC_ALL=C.UTF-8 LANGUAGE=zh_CN
english LC_ALL=fr_FR.UTF-8
TEXT
}

# A name says what the person reads even where nobody has installed the locale.
test_locale_that_is_not_installed_counts_by_its_name() {
    unset LOCPATH
    export LOCPATH=$PWD
    ends 0 in_locale "$utf8" "$KESTA_BIN/ukey" --help
    mv out utf8
    grep -q 日常使用 utf8 || fail "$(<utf8)"
    ends 0 in_locale "$gb18030" "$KESTA_BIN/ukey" --help
    iconv -f GB18030 -t UTF-8 out >converted
    expect_same_lines "the same in GB18030" utf8 converted
    # The launcher too, whether or not LANGUAGE says it again, and in a charset that nobody knows.
    local setting
    for setting in "LC_ALL=$utf8" "LC_ALL=$utf8 LANGUAGE=zh_CN" "LC_ALL=zh_CN.NONSENSE"; do
        # shellcheck disable=SC2086
        ends 0 env $setting "$KESTA_BIN/ukey-sandbox" --help
        grep -q '用法' out || fail "$setting: the launcher does not speak Chinese" "$(head -n 2 out)"
    done
}

test_text_is_in_the_charset_of_the_locale() {
    local command
    for command in 'ukey --help' 'ukey sign --help' 'softkey --help' 'ukey help nonsense' 'ukey doctor --no-key' \
        'ukey error -101' 'ukey completion zsh'; do
        # shellcheck disable=SC2086
        in_locale "$utf8" "$KESTA_BIN"/$command >said 2>&1 || true
        # shellcheck disable=SC2086
        in_locale "$gb18030" "$KESTA_BIN"/$command >gb 2>&1 || true
        iconv -f GB18030 -t UTF-8 gb >converted || fail "$command: not GB18030"
        expect_same_lines "$command" said converted
        is_chinese said || fail "$command: not Chinese"
        ! iconv -f UTF-8 -t UTF-8 gb >/dev/null 2>&1 || fail "$command: UTF-8 in a GB18030 locale"
    done
}

test_character_that_the_charset_lacks_becomes_a_question_mark() {
    softkey create --serial CLI00001 --label 'a😀b' >/dev/null
    KESTA_SOFTKEY_HOME=$scratch/key ends 0 in_locale zh_CN.GB2312 "$softkey_command" show
    iconv -f GB2312 -t UTF-8 out >converted
    expect_matches "label" 'a\?b' "$(<converted)"
}

test_what_a_person_types_is_in_the_charset_too() {
    local typed
    typed=$(printf 签名 | iconv -t GB18030)
    ends 2 in_locale "$gb18030" "$KESTA_BIN/ukey" "$typed"
    expect_matches "told" '没有命令“签名”' "$(iconv -f GB18030 -t UTF-8 err)"
    new_key
    ends 0 in_sandbox env LC_ALL="$gb18030" "$ukey_command" label set "$(printf 财务 | iconv -t GB18030)"
    ends 0 in_sandbox env LC_ALL="$gb18030" "$ukey_command" label get --json
    grep -q '"label":"财务"' out || fail "$(<out)"
}

test_token_library_is_asked_in_language_and_charset() {
    ends 0 in_sandbox env LC_ALL="$gb18030" "$ukey_command" error 0x5B21
    expect_matches "Chinese" 'PIN 码错误' "$(iconv -f GB18030 -t UTF-8 out)"
    ends 0 in_sandbox env LC_ALL="$gb18030" "$ukey_command" error 0x5B21 --json
    grep -q '"message":"PIN 码错误"' out || fail "JSON is not UTF-8: $(<out)"
    new_key
    export KESTA_SOFTKEY_PIN=000000
    ends 4 in_sandbox env LC_ALL="$gb18030" "$ukey_command" pin verify
    iconv -f GB18030 -t UTF-8 err >told
    expect_matches "message" 'PIN 码错误' "$(<told)"
    expect_matches "tries" '剩余 5 次，共 6 次' "$(<told)"
    ends 0 in_sandbox env LC_ALL="$utf8" env LANGUAGE=en "$ukey_command" error 0x5B21
    expect_matches "English" 'the PIN is wrong' "$(<out)"
}

# What programs read: everything but sentences for a person.
test_JSON_and_exit_statuses_are_the_same_in_every_language() {
    need jq
    local command status locale
    new_key
    local bare='del(.. | .subject?, .detail?, .remedy?, .verdict?, .message?, .advice?, .words?, .text?)'
    while read -r command; do
        for locale in C.UTF-8 "$gb18030"; do
            status=0
            # shellcheck disable=SC2086
            in_sandbox env LC_ALL="$locale" $command --json >"$locale.json" 2>/dev/null </dev/null || status=$?
            iconv -f UTF-8 -t UTF-8 "$locale.json" >/dev/null || fail "$command: no UTF-8 in $locale"
            jq -S "$bare" "$locale.json" >"$locale.bare"
            echo "$status" >>"$locale.bare"
            expect_same_lines "$command in $locale" C.UTF-8.bare "$locale.bare"
        done
    done <<TEXT
$ukey_command info
$ukey_command pin info
$ukey_command doctor
$ukey_command error 0x5B21
$ukey_command label get --serial NONE
$ukey_command sign
$ukey_command nonsense
$ukey_command decrypt /nowhere
$KESTA_BIN/softkey list
$KESTA_BIN/softkey show
$KESTA_BIN/softkey show NONE
$KESTA_BIN/softkey misbehave /nowhere
TEXT
    for locale in C.UTF-8 "$utf8"; do
        in_sandbox env LC_ALL="$locale" "$ukey_command" info --json >"$locale.json"
    done
    cmp C.UTF-8.json "$utf8.json" || fail "what holds no sentence is the same to the byte"
}

# Composed elsewhere: by the recorder's libraries, which run in clients, and by the software key's core.
test_what_other_parts_say_is_translated() {
    echo nothing >no.rec
    ends 9 in_locale "$utf8" "$KESTA_BIN/ukey" trace show no.rec
    expect_matches "recording" 'no\.rec：不是录制文件' "$(<err)"
    echo '{"rules": [{"entry": "Sgn"}]}' >plan.json
    ends 5 in_locale "$utf8" env KESTA_SOFTKEY_HOME="$scratch/key" "$KESTA_BIN/softkey" misbehave ./plan.json
    expect_matches "plan" 'rules\[0\]\.entry：应为入口点名称，而不是 "Sgn"' "$(<err)"
    ends 2 in_locale "$utf8" env KESTA_SOFTKEY_HOME="$scratch/key" "$KESTA_BIN/softkey" create --serial 'no blank'
    expect_matches "serial" '参数缺失或格式错误：序列号“no blank”：应为' "$(<err)"
    ends 9 in_locale "$utf8" "$KESTA_BIN/ukey" import nowhere.cer --no-pin
    expect_matches "file" '无法读取 nowhere\.cer：没有那个文件或目录' "$(<err)"
    new_key
    in_sandbox "$ukey_command" record -o label.rec -- "$ukey_command" label get >/dev/null
    ends 20 in_sandbox env LC_ALL="$utf8" "$ukey_command" replay label.rec -- "$ukey_command" list
    grep -v '^bash' err | grep -P '\p{Han}' >told
    expect_matches "replay" '回放与录制不符：.*(录制|调用)' "$(<told)"
    ! grep -E 'recorded|recording|call of' told || fail "English: $(<told)"
}

test_numbers_and_order_stay_those_of_the_C_locale() {
    new_key
    in_sandbox env LC_ALL="$utf8" "$ukey_command" log "$scratch/library.log" --json >out
    has_shape '{"file":"text","calls":[],"strangeBytes":"number","ok":"true"}' out
}

test_manual_page_is_Chinese_to_the_last_sentence() {
    local program
    for program in ukey softkey; do
        in_locale "$utf8" "$KESTA_BIN/$program" manual >page
        # Lines of requests, names and examples have no sentences.
        grep -vP '[^\x01-\x7f]' page | grep -P '^[A-Z][a-z]+ [a-z]|[a-z] [a-z]+ [a-z]+ [a-z]+' |
            grep -vE '^ +(ukey|softkey|openssl|printf|echo) |^\.(BR|B|I|IR) ' >english || true
        expect_equal "English in $program manual" "" "$(<english)"
        in_locale "$gb18030" "$KESTA_BIN/$program" manual >utf8
        cmp page utf8 || fail "a page is UTF-8"
    done
}

test_sandbox_speaks_the_language_too() {
    ends 0 in_locale "$utf8" "$KESTA_BIN/ukey-sandbox" --help
    mv out utf8
    expect_equal "an untranslated line" "" "$(untranslated utf8)"
    ends 0 in_locale "$gb18030" "$KESTA_BIN/ukey-sandbox" --help
    iconv -f GB18030 -t UTF-8 out >converted
    expect_same_lines "in GB18030" utf8 converted
    ends 2 in_locale "$utf8" "$KESTA_BIN/ukey-sandbox" --nonsense
    expect_matches "error" '未知选项 --nonsense' "$(<err)"
    ends 2 in_locale C.UTF-8 "$KESTA_BIN/ukey-sandbox" --nonsense
    expect_matches "English" 'unknown option --nonsense' "$(<err)"
    # Nothing in a sentence or a part is expanded.
    # shellcheck disable=SC2016
    ends 127 in_locale "$utf8" "$KESTA_BIN/ukey-sandbox" '$(touch expanded)&'
    expect_matches "part" '找不到命令：\$\(touch expanded\)&' "$(<err)"
    [[ ! -e expanded ]] || fail "it was run"
    export LOCPATH=$PWD
    ends 0 in_locale "$gb18030" "$KESTA_BIN/ukey-sandbox" --help
    iconv -f GB18030 -t UTF-8 out >converted
    expect_same_lines "by its name" utf8 converted
}

test_catalogue_is_found_below_any_prefix() {
    mkdir -p prefix/bin
    cp "$KESTA_BIN/softkey" prefix/bin
    ends 0 in_locale "$utf8" prefix/bin/softkey --help
    ! is_chinese out || fail "it took the build's catalogue"
    mkdir -p prefix/share
    cp -r "$KESTA_CATALOGUES" prefix/share/locale
    ends 0 in_locale "$utf8" prefix/bin/softkey --help
    is_chinese out || fail "$(<out)"
}

run_claims "$@"
