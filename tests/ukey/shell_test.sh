#!/usr/bin/env bash
# What is made from the command line's definitions: help, completion, manual page; and what every
# subcommand has in common. KESTA_SOURCE is the source tree.
# shellcheck source=tests/ukey/support.bash
. "$(dirname "$(readlink -f "$0")")/support.bash"

# The subcommands, as "cert get", that do something.
leaves() {
    local name inner
    for name in $(subcommands); do
        inner=$(subcommands "$name")
        if [[ -z $inner ]]; then
            echo "$name"
        else
            # shellcheck disable=SC2086
            printf "$name %s\n" $inner
        fi
    done
}

# The option names in a help.
options_of() {
    # shellcheck disable=SC2086
    bare $1 --help | sed -n '/^Options:/,/^$/p' | grep -oE '^  (-[a-zA-Z],)?(-[a-zA-Z-]+|--[a-z-]+)' |
        tr ',' '\n' | tr -d ' '
}

test_every_family_is_there() {
    local name
    leaves >all
    for name in info 'pin verify' 'pin change' 'pin info' 'pin cache' 'pin forget' init request \
        batch-request import 'cert get' 'cert dn' 'cert info' 'cert delete' sign sign-hash \
        batch-sign decrypt list self-test 'label get' 'label set' 'data get' 'data set' charset language wait \
        error check-install log doctor; do
        grep -qx "$name" all || fail "no subcommand $name"
    done
}

test_every_subcommand_has_examples_and_json() {
    local leaf
    leaves | grep -vE '^(completion|help)' >all
    (($(wc -l <all) >= 29)) || fail "only $(wc -l <all) subcommands"
    while read -r leaf; do
        # shellcheck disable=SC2086
        bare $leaf --help >help
        grep -q "^  .*ukey ${leaf% *}" help || fail "$leaf has no example" "$(<help)"
        grep -q -- '--json' help || fail "$leaf has no --json"
    done <all
}

test_help_fits_a_terminal() {
    local leaf wide
    while read -r leaf; do
        # shellcheck disable=SC2086
        wide=$(bare $leaf --help | awk 'length > 100')
        [[ -z $wide ]] || fail "wider than 100 columns, of $leaf:" "$wide"
    done < <(leaves)
}

test_wrong_option_names_the_help_to_read() {
    ends 2 bare cert get --nonsense
    expect_matches "advice" 'ukey cert get --help' "$(<err)"
    fails 2 usage bare cert get --nonsense
}

test_no_subcommand_is_wrong_usage() {
    ends 2 bare
}

test_word_that_is_no_command_is_named() {
    ends 2 bare singe
    expect_matches "said" 'there is no command "singe"' "$(<err)"
    ends 2 bare cert gte
    expect_matches "said" 'there is no command "gte"' "$(<err)"
    ends 2 bare error
    expect_matches "said" 'CODE is required' "$(<err)"
    for seconds in 0 -1 1000001 nan 1s; do
        ends 2 bare wait --timeout "$seconds"
        expect_matches "$seconds" '--timeout: it takes a number of seconds above 0, at most 1000000' "$(<err)"
    done
}

test_mistyped_words_are_guessed() {
    ends 2 bare singe
    expect_matches "command" 'did you mean `ukey sign`' "$(<err)"
    ends 2 bare cert gte
    expect_matches "second level" 'did you mean `ukey cert get`' "$(<err)"
    ends 2 bare sign --sreial x
    expect_matches "option" 'did you mean `--serial`' "$(<err)"
    fails 2 usage bare lgo
    expect_matches "in JSON" '"advice":"did you mean `ukey log`' "$(<out)"
    ends 2 bare xyzzy
    grep -q 'did you mean' err && fail "a wild guess" "$(<err)"
    return 0
}

test_help_is_a_command_too() {
    bare --help >whole
    bare help | diff whole - >&2 || fail "ukey help is not ukey --help"
    bare cert get --help >one
    bare help cert get | diff one - >&2 || fail "ukey help cert get is not ukey cert get --help"
    ends 2 bare help cert gte
    expect_matches "guess" 'did you mean `ukey cert get`' "$(<err)"
    expect_matches "groups" 'Everyday:.*Enrolment:.*Diagnosis:' "$(tr '\n' ' ' <whole)"
}

test_JSON_may_be_asked_for_before_and_behind_the_command() {
    bare --json error -101 >before
    bare error -101 --json | diff before - >&2 || fail "they differ"
    bare --json cert nonsense >out 2>err && fail "it succeeded"
    grep -q '"kind":"usage"' out || fail "$(<out)"
    # Behind -- it is an argument like any other.
    ends 2 bare error -- --json
    expect_equal "standard output" "" "$(<out)"
}

test_reader_that_leaves_is_no_error() {
    local status
    bare help >whole
    for _ in 1 2 3; do
        status=$(bash -c "'$ukey_command' --help 2>err | true; echo \${PIPESTATUS[0]}")
        expect_equal "status" 0 "$status"
        expect_equal "said" "" "$(<err)"
    done
}

test_no_header_but_the_kits_knows_the_parser_or_the_JSON_library() {
    grep -rlE '#include <(CLI|nlohmann)/' "$KESTA_SOURCE/tools" >found || true
    grep -v '/tools/kit/[a-z_]*\.cpp$' found && fail "they include what is slow to compile"
    [[ -s found ]] || fail "nothing was found at all"
}

test_fish_accepts_its_script_and_completes() {
    need fish
    bare completion fish >ukey.fish
    fish --no-execute ukey.fish
    offered() { fish --no-config -c "source ukey.fish; complete -C '$1'" | cut -f1 | sort | xargs; }
    expect_equal "subcommand" doctor "$(offered 'ukey doct')"
    expect_equal "second level" "delete dn get info" "$(offered 'ukey cert ')"
    expect_equal "option" --key-type "$(offered 'ukey sign --key')"
    expect_equal "value" "rsa sm2" "$(offered 'ukey sign --key-type ')"
    : >some.file
    expect_equal "file" some.file "$(offered 'ukey import some')"
    expect_equal "no file" "" "$(offered 'ukey pin verify some')"
}

test_missing_library_has_its_own_status_and_advice() {
    fails 7 not-loaded bare info --library ./nowhere.so
    grep -q '"advice":"`ukey doctor`' out || fail "$(<out)"
    ends 7 bare info --library ./nowhere.so
    expect_matches "said" 'nowhere\.so.*\(-101\)' "$(<err)"
}

test_missing_token_library_has_the_same_status() {
    need bwrap
    ends 7 bwrap --dev-bind / / --tmpfs /opt --dir /opt/apps/com.zrk.uoskesta/files/bin \
        --ro-bind "$KESTA_KEY_BIN/libR7Token_KESTA.so" \
        /opt/apps/com.zrk.uoskesta/files/bin/libR7Token_KESTA.so "$ukey_command" info
    expect_matches "said" 'the token library is missing or incomplete \(-101\)' "$(<err)"
}

test_full_disk_is_told() {
    ends 9 bash -c "'$ukey_command' completion bash >/dev/full"
    expect_matches "said" 'cannot be written' "$(<err)"
}

test_version_is_the_projects() {
    expect_matches "version" '^ukey [0-9.]+$' "$(bare --version)"
}

test_nothing_is_coloured_outside_a_terminal() {
    bare doctor --root / >out || true
    grep -q $'\033' out && fail "escape codes in a file"
    return 0
}

test_colours_on_a_terminal_unless_NO_COLOR() {
    need script
    TERM=xterm script -qec "'$ukey_command' doctor --root /" /dev/null >out || true
    grep -q $'\033\\[' out || fail "no colours on a terminal"
    NO_COLOR=1 TERM=xterm script -qec "'$ukey_command' doctor --root /" /dev/null >out || true
    grep -q $'\033\\[' out && fail "colours although NO_COLOR is set"
    return 0
}

# complete WORDS...: what bash would offer for the last word.
complete_bash() {
    (
        # shellcheck disable=SC1090
        source <(bare completion bash)
        compopt() { offered_files=yes; }
        COMP_WORDS=(ukey "$@") COMP_CWORD=$#
        offered_files=''
        _ukey
        printf '%s\n' "${COMPREPLY[@]}" ${offered_files:+FILES}
    )
}

test_bash_completes_subcommands_options_values_and_files() {
    expect_matches "subcommand" 'doctor' "$(complete_bash doc | xargs)"
    expect_equal "second level" "get dn info delete" "$(complete_bash cert '' | grep -v '^-' | xargs)"
    expect_equal "option" "--key-type" "$(complete_bash sign --key | xargs)"
    expect_equal "value" "rsa sm2" "$(complete_bash sign --key-type '' | xargs)"
    expect_equal "words" "inserted removed any" "$(complete_bash wait --for '' | xargs)"
    expect_equal "file of an option" "FILES" "$(complete_bash sign --output '' | xargs)"
    expect_equal "file" "FILES" "$(complete_bash import '' | xargs)"
}

test_bash_offers_every_option_of_every_subcommand() {
    local leaf option
    while read -r leaf; do
        # shellcheck disable=SC2086
        complete_bash $leaf - >offered
        while read -r option; do
            grep -qx -- "$option" offered || fail "$leaf: $option is not offered"
        done < <(options_of "$leaf")
    done < <(leaves)
}

test_zsh_accepts_its_script_and_completes() {
    need zsh
    bare completion zsh >_ukey
    zsh -n _ukey
    # In a terminal of zsh's own, as a person would press the tabulator.
    cat >person <<'ZSH'
zmodload zsh/zpty zsh/zselect
zpty -b shell "TERM=dumb zsh -f -i"
hear() {
    local piece tries
    heard=''
    for ((tries = 0; tries < 100; ++tries)); do
        while zpty -rt shell piece; do heard+=$piece; done
        [[ $heard != *$1* ]] || return 0
        zselect -t 10 || true
    done
}
zpty -w shell "fpath=($PWD \$fpath); autoload -Uz compinit; compinit -u -d $PWD/dump; print re''ady"
hear ready
zselect -t 100 || true  # until its prompt stands there
zpty -wn shell "ukey doct"$'\t'
hear "ukey doctor"
print -r -- $heard
zpty -wn shell $'\025'"ukey sign --key-type s"$'\t'
hear "--key-type sm2"
print -r -- $heard
ZSH
    zsh -f person >said 2>&1
    expect_matches "subcommand" 'ukey doctor' "$(<said)"
    expect_matches "value" 'key-type sm2' "$(<said)"
}

test_manual_page_is_the_one_that_the_command_makes() {
    bare manual | diff "$KESTA_SOURCE/docs/man/ukey.1" - >&2 ||
        fail "docs/man/ukey.1 is old; make it with: ukey manual >docs/man/ukey.1"
}

test_Chinese_manual_pages_are_those_that_the_commands_make() {
    local name
    for name in ukey softkey; do
        env -u LANGUAGE LC_ALL=zh_CN.UTF-8 "$KESTA_BIN/$name" manual |
            diff "$KESTA_SOURCE/docs/man/zh_CN/$name.1" - >&2 ||
            fail "make it with: LC_ALL=zh_CN.UTF-8 $name manual >docs/man/zh_CN/$name.1"
    done
}

test_manual_page_has_every_option_of_every_help() {
    need man
    MANWIDTH=200 man -l "$KESTA_SOURCE/docs/man/ukey.1" 2>warnings | col -b >page
    local leaf option
    while read -r leaf; do
        sed -n "/^   ukey $leaf\$/,/^   ukey /p" page >section
        [[ -s section ]] || fail "no section for ukey $leaf"
        while read -r option; do
            grep -qE -- "(^| )$option( |,|\$)" section || fail "$leaf: $option is not in the page"
        done < <(options_of "$leaf")
    done < <(leaves)
}

test_manual_page_has_no_fault() {
    need man
    LC_ALL=C.UTF-8 man --warnings=all -l "$KESTA_SOURCE/docs/man/ukey.1" 2>warnings >/dev/null
    [[ ! -s warnings ]] || fail "$(<warnings)"
}

test_manual_page_has_every_exit_status() {
    local status
    for status in $(bare --help | sed -n '/^Exit status:/,/^$/s/^  \([0-9]*\) .*/\1/p'); do
        grep -qx ".B $status" "$KESTA_SOURCE/docs/man/ukey.1" || fail "status $status is missing"
    done
}

run_claims "$@"
