#!/usr/bin/env bash
# Values planted where confidential things stand are found nowhere in a recording, nor in what is made
# of it: not as they are, nor in another writing.
# shellcheck source=tests/ukey/support.bash
. "$(dirname "$(readlink -f "$0")")/../ukey/support.bash"

# In Chinese as well: there UTF-8 and GB18030 differ.
serial=CANARYSN01 label='Canary label' data='canary data value' text='canary text to sign'
warning='canary on the screen' subject='Canary Subject' plain='canary plain text'
label_zh='金丝雀的标签' data_zh='金丝雀的数据对象' text_zh='金丝雀待签名的文字' subject_zh='金丝雀的主体'
host=canary-host user=canaryuser home=canaryhome

values() {
    printf '%s\n' "$serial" "$label" "$data" "$text" "$warning" "$subject" "$plain" "$key_text" \
        "$label_zh" "$data_zh" "$text_zh" "$subject_zh" "$host" "$user" "$home"
}

search=$(dirname "$(readlink -f "$0")")/find-canaries

# absent_from FILE...: none of the values, in any writing.
absent_from() {
    need python3
    [[ $(values | grep -c .) == 15 ]] || fail "an empty canary"
    values | "$search" "$@" >held || fail "$(<held)"
}

# On a machine called so, for a user called so: what the commands are run with.
on_the_machine() {
    need bwrap
    LOGNAME=$user HOME=/home/$home in_sandbox bwrap --dev-bind / / --unshare-user --unshare-uts \
        --hostname "$host" -- "$@"
}

# With a name of its own, which only a request can bring in Chinese.
issue() {
    local public=${3:-$1.pub}
    [[ -n ${3:-} ]] || openssl req -in "$1.csr" -noout -pubkey >"$public"
    openssl req -new -utf8 -key ca.key -sm3 -sigopt "$identity" \
        -subj "/O=$subject/OU=$subject_zh/CN=$1" -out named.csr
    openssl x509 -req -in named.csr -CA ca.pem -CAkey ca.key -CAcreateserial -sm3 \
        -sigopt "$identity" -vfyopt "$identity" -days 20 -force_pubkey "$public" -out "$1.pem" 2>/dev/null
}

# plant [OPTION]: records a client that uses everything that is planted.
plant() {
    softkey create --serial "$serial" --label "$label" >/dev/null
    make_authority
    make_requests
    answer_requests
    key_text=$(head -c 200 enc.key | tail -c 90)
    printf '%s' "$plain" >plain.txt
    openssl pkeyutl -encrypt -pubin -inkey enc-pair.pub -in plain.txt | base64 -w0 >cipher.txt
    cat >client.sh <<'TEXT'
"$1" import sign.pem
"$1" import enc.pem --key enc.key
"$1" cert dn
"$1" cert get
"$1" label set "$5 again"
"$1" label set "$5"
"$1" data set canary-data --value "$2"
"$1" data get canary-data
"$1" sign --text "$3" --warning "$4"
"$1" decrypt cipher.txt
for coding in UTF-8 GB18030; do
    coded() { printf %s "$1" | iconv -t "$coding"; }
    "$1" label set "$(coded "$6")"
    "$1" label get
    "$1" data set canary-data --value "$(coded "$7")"
    "$1" data get canary-data
    "$1" sign --text "$(coded "$8")" --warning "$(coded "$8")"
done
"$1" batch-request
TEXT
    on_the_machine "$ukey_command" record "$@" -o case.rec -- sh -e client.sh "$ukey_command" "$data" \
        "$text" "$warning" "$label" "$label_zh" "$data_zh" "$text_zh" >said 2>&1 || fail "$(<said)"
    grep -qF "$plain" said || fail "nothing was decrypted" "$(<said)"
}

test_a_recording_holds_no_canary() {
    plant
    (($(bare trace show --json case.rec | grep -c '"call"') > 10)) || fail "nothing was recorded"
    bare trace show case.rec >case.txt
    bare trace show --json case.rec >case.jsonl
    bare trace show --html case.html case.rec
    ends 20 bare replay case.rec -- "$ukey_command" pin info --serial "$serial"
    cp err replay.txt
    absent_from case.rec case.txt case.jsonl case.html replay.txt
}

test_a_report_holds_no_canary() {
    plant
    grep -qF "$serial" library.log || fail "the log lacks the serial number"
    grep -qF "$key_text" library.log || fail "the log lacks the escrowed key"
    mkdir -p "home/$home"
    cp "$KESTA_CLIENT_LIBRARY" "home/$home/"
    on_the_machine "$ukey_command" report -o report.zip --trace case.rec \
        --library "$scratch/home/$home/libkesta_unified_zrkukey.so" >said 2>&1 || true
    LD_LIBRARY_PATH=/home/$home/lib on_the_machine "$ukey_command" report -o report.zip --trace case.rec \
        >>said 2>&1 || fail "$(<said)"
    absent_from report.zip said
    softkey remove >/dev/null
    on_the_machine "$ukey_command" report -o absent.zip --serial "$serial" >said 2>&1 || fail "$(<said)"
    absent_from absent.zip said
}

test_the_search_finds_what_a_full_recording_holds() {
    plant --full
    if (absent_from case.rec) 2>/dev/null; then fail "the search found nothing"; fi
    local value
    for value in "$serial" "$label" "$data" "$text" "$warning" "$plain" "$label_zh" "$data_zh" "$text_zh"; do
        grep -qF "holds $value (utf-8)" held || fail "the full recording lacks $value" "$(<held)"
    done
    grep -qF "holds $label_zh (gb18030)" held || fail "the full recording lacks $label_zh in GB18030"
    grep -qF "holds $subject (utf-8 in Base64)" held || fail "the full recording lacks $subject"
    grep -qF "holds $subject_zh (utf-8 in Base64)" held || fail "the full recording lacks $subject_zh"
    ! grep -qF "holds $key_text" held || fail "the full recording holds the escrowed key"
}

test_the_search_finds_every_writing() {
    local coding
    need python3 zip
    for coding in UTF-8 UTF-16LE UTF-16BE GB18030; do
        printf %s "$label_zh" | iconv -t "$coding" >plain-$coding
        xxd -p plain-$coding >hex-$coding
        xxd -p -u plain-$coding >upper-$coding
        base64 plain-$coding >base64-$coding
        { printf x && cat plain-$coding; } | base64 >shifted-$coding
        { printf xx && cat plain-$coding; } | base64 >twice-$coding
    done
    printf '"\\u91d1\\u4e1d\\u96c0\\u7684\\u6807\\u7b7e"' >escaped
    echo nothing >clean
    zip -q packed.zip -- *-* escaped
    if "$search" *-* escaped packed.zip clean <<<"$label_zh" >held; then fail "nothing was found"; fi
    for file in *-* escaped; do
        grep -q "^$file holds" held || fail "not found in $file" "$(<held)"
        grep -q "^packed.zip: $file holds" held || fail "not found in the archive's $file" "$(<held)"
    done
    ! grep -q clean held || fail "found where it is not" "$(<held)"
}

run_claims "$@"
