#!/usr/bin/env bash
# Help, the panel, misbehaviour, the manual page, what both commands have.
# shellcheck source=tests/softkey/command/support.bash
. "$(dirname "$(readlink -f "$0")")/support.bash"

# --- help

test_help_of_the_command_names_every_subcommand_and_exit_code() {
    run 0 --help
    silent
    for name in $subcommands; do grep -qE "^  $name +" out || fail "no $name"; done
    for code in 0 1 2 3 4 5 6 7; do grep -qE "^  $code  " out || fail "no $code"; done
}

test_help_of_every_subcommand_has_examples() {
    for name in $subcommands; do
        run 0 "$name" --help
        silent
        grep -qx 'Examples:' out || fail "no examples of $name"
        grep -qE "^  .*softkey $name" out || fail "no example of $name"
    done
}

test_no_subcommand_is_bad_usage() {
    run 2
    err_is 'softkey: A subcommand is required
  `softkey --help` shows what it takes'
}

test_an_unknown_option_is_bad_usage() {
    run 2 list --loud
    out_is ''
    run 2 create --pin 123456
}

# --- screen and button

test_the_screen_of_a_new_key_is_empty() {
    create --serial SK1
    run 0 screen
    out_is '(the screen is empty)'
    run 0 screen --json
    value_is /text ''
    value_is /waiting 0
}

test_the_button_keeps_its_decision() {
    create --serial SK1
    for decision in ask refuse press; do
        run 0 button "$decision"
        out_is "every question from now on: $decision"
        run 0 show --json
        value_is /button "$decision"
    done
    run 0 button ask
    run 0 button auto --json
    value_is /button press
    value_is /answered 0
}

test_an_unknown_decision_is_bad_usage() {
    create --serial SK1
    run 2 button perhaps
    run 2 button
}

test_the_button_answers_every_question_that_waits() {
    create --serial SK1
    "$KESTA_BIN/softkey_state_sql" "$KESTA_SOFTKEY_HOME" "INSERT INTO prompts(serial, deadline)
        VALUES('SK1', 9223372036854775807), ('SK1', 9223372036854775807)" || fail softkey_state_sql
    run 0 button press
    out_is 'answered 2 waiting questions; every question from now on: press'
}

# --- misbehave

test_a_plan_is_set_shown_and_cleared() {
    echo '{"rules": [{"entry": "SetData", "call": 2, "code": "KeyRemoved"}]}' >plan
    run 0 misbehave plan
    out_is 'in force: 1 rule'
    run 0 misbehave --show --json
    value_is /plan/rules/0/entry SetData
    value_is /calls '{}'
    run 0 misbehave --show
    out_has 'no calls yet'
    run 0 misbehave --clear
    out_is cleared
    run 0 misbehave --clear --json
    value_is /cleared false
    run 0 misbehave --show
    out_is 'no plan'
}

test_a_plan_may_come_from_the_standard_input() {
    echo '{"rules": [{"entry": "SetData", "code": 1}]}' | "$softkey" misbehave - >out 2>err ||
        fail refused
    out_is 'in force: 1 rule'
}

test_a_bad_plan_is_named_by_file_and_field() {
    echo '{"rules": [{"entry": "SetData", "cod": 1}]}' >plan
    run 5 misbehave plan
    out_is ''
    grep -qF 'softkey: plan: rules[0].cod: no such field' err || fail "not named"
    run 5 misbehave none
    err_is 'softkey: none cannot be read: No such file or directory'
    run 2 misbehave
    run 2 misbehave plan --clear
    run 2 misbehave --list --show
}

test_a_ready_plan_is_set_by_its_name_and_a_file_of_that_name_by_its_path() {
    run 0 misbehave slow
    out_is 'in force: 1 rule'
    run 0 misbehave --show --json
    value_is /plan/rules/0/delay_ms 1000
    echo '{"tries_left": 3}' >slow
    run 0 misbehave slow --json
    value_is /rules 1
    run 0 misbehave ./slow --json
    value_is /rules 0
    run 5 misbehave slowly
    err_is 'softkey: slowly cannot be read: No such file or directory'
}

test_every_ready_plan_is_accepted_and_listed_with_one_sentence() {
    run 0 misbehave --list --json
    cp out list
    run 0 misbehave --list
    local name
    for name in $(jq -r '.plans[].name' list); do
        run 0 misbehave "$name"
        run 0 misbehave --show --json
        expect_equal "the plan $name" "$(jq -cS ".plans[] | select(.name == \"$name\").plan" list)" \
            "$(jq -cS .plan out)"
    done
    jq -r '.plans[].teaches' list | grep -vE '^[A-Z][^.?]*(: [^.?:]*)?[.?]$' >long &&
        fail "not one sentence" "$(<long)"
    return 0
}

test_the_page_of_misbehaviour_has_the_ready_plans() {
    run 0 misbehave --list --json
    jq -r '.plans[] | "| `\(.name)` | \(.teaches) |"' out >listed
    sed -n '/^| name /,/^$/p' "$source/docs/misbehaviour.md" | sed '1,2d;/^$/d' >documented
    expect_same_lines "docs/misbehaviour.md" listed documented
    jq -r '.plans[].name' out | while read -r name; do
        grep -qE "^- \\*\\*([a-z-]+, )*$name(, [a-z-]+)*\\.\\*\\*" "$source/docs/misbehaviour.md" ||
            fail "what to make of $name is not said"
    done
}

test_a_plan_that_no_JSON_reader_likes_ends_with_the_name_of_the_field() {
    printf '{"rules": [{"entry": "SetData", "code_after": %s}]}' \
        "$(printf '%0100000d' 0 | tr 0 '[')$(printf '%0100000d' 0 | tr 0 ']')" >deep
    run 5 misbehave deep
    err_is 'softkey: deep: rules[0].code_after[0][0][0][0][0]: is nested too deeply'
    echo '{"limits": {"bytes": 1e400}}' >huge
    run 5 misbehave huge
    err_is 'softkey: huge: limits.bytes: is a number beyond what a number can hold'
}

test_a_plan_is_read_from_a_terminal_until_its_end() {
    need script
    echo '{"tries_left": 3}' | script -qec "'$softkey' misbehave -" /dev/null >out || fail "$(<out)"
    out_has 'softkey: reading standard input; end it with Ctrl-D'
    out_has 'in force: 0 rules'
}

test_a_plan_without_an_end_is_not_read_for_ever() {
    run 5 misbehave /dev/zero
    err_is 'softkey: /dev/zero is larger than 64 MiB'
}

test_a_chance_is_shown_as_the_number_that_it_is() {
    echo '{"rules": [{"entry": "SetData", "chance": 0.25, "code": 1}]}' >plan
    run 0 misbehave plan
    run 0 misbehave --show --json
    value_is /plan/rules/0/chance 0.25
}

test_a_plan_that_was_damaged_is_not_shown() {
    create
    umask 077
    echo '{"rules":' >"$KESTA_SOFTKEY_HOME/misbehaviour.json"
    run 6 misbehave --show
    err_is "softkey: the key's stored state is damaged: $KESTA_SOFTKEY_HOME/misbehaviour.json is not JSON"
}

# --- the manual page

test_the_manual_page_has_no_errors() {
    local page=$source/docs/man/softkey.1
    man --warnings -E UTF-8 -l "$page" >out 2>err || fail "man failed"
    silent
    [ -s out ] || fail "the page is empty"
}

test_the_manual_page_is_the_one_that_the_command_makes() {
    run 0 manual
    diff "$source/docs/man/softkey.1" out >&2 ||
        fail "docs/man/softkey.1 is old; make it with: softkey manual >docs/man/softkey.1"
}

# --- what both commands have

test_every_answer_in_json_says_that_it_succeeded() {
    create --serial SK1 --json
    value_is /ok true
    local command
    for command in list show insert remove unlock screen 'button ask' check path 'misbehave --show' \
        'misbehave --clear' 'delete SK1'; do
        # shellcheck disable=SC2086
        run 0 $command --json
        value_is /ok true
        expect_equal "lines of $command" 1 "$(wc -l <out)"
        grep -qE '"[a-z]+_[a-z_]+":' out && fail "another style of names in $command" "$(<out)"
    done
    return 0
}

test_a_mistyped_command_is_guessed() {
    run 2 lsit
    err_is 'softkey: there is no command "lsit"
  did you mean `softkey list`? `softkey --help` shows what it takes'
    run 2 help lsit
    run 0 help list
    out_has 'Usage: softkey list'
}

test_completion_knows_the_subcommands() {
    local shell
    for shell in bash zsh fish; do
        run 0 completion $shell
        for name in $subcommands; do grep -qw -- "$name" out || fail "$shell lacks $name"; done
    done
    "$softkey" completion bash >script
    bash -n script
    (
        # shellcheck disable=SC1091
        . ./script
        COMP_WORDS=(softkey button re) COMP_CWORD=2
        _softkey
        expect_equal "decisions" refuse "${COMPREPLY[*]}"
        compopt() { :; } # speaks of the completion under way, and there is none
        COMP_WORDS=(softkey misbehave fl) COMP_CWORD=2
        _softkey
        expect_equal "plans" flaky-socket "${COMPREPLY[*]}"
    )
}

test_what_destroys_is_asked_for_on_a_terminal() {
    need script
    create --serial SK1
    printf 'n\n' | TERM=dumb script -qec "'$softkey' delete SK1" /dev/null >out && fail "deleted"
    out_has 'Delete SK1 with all that is on it?'
    run 0 show SK1
    TERM=dumb script -qec "'$softkey' delete SK1 --yes" /dev/null >out || fail "$(<out)"
    run 3 show SK1
}

test_the_screen_does_not_steer_the_terminal() {
    create --serial SK1
    printf 'a\302\2332Jb\033[2Jc' >"$KESTA_SOFTKEY_HOME/screen-SK1"
    run 0 screen
    out_is 'a?2Jb?[2Jc'
    run 0 screen --json
    grep -q '\\u009b2Jb\\u001b' out || fail "$(<out)"
}

test_output_is_the_name_of_the_option_everywhere() {
    create --serial SK1
    run 0 path --output file
    expect_equal "file" "$KESTA_SOFTKEY_HOME" "$(<file)"
    run 0 path -o file --json
    value_is /output file
}

run_claims "$@"
