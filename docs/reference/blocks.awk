# Reads the public header and prints each function's block as lines "KIND<TAB>text":
#   FUNCTION name, BRIEF text, PARAM names<TAB>text, TEXT text, CODES text, BLOCKING text, LOG text,
#   PROTOTYPE text, END. Conventions come first as CONVENTION number<TAB>text.
# Fails, naming the function, when a declaration has no block or a block lacks one of its lines.

function fail(message) {
    print FILENAME ": " message > "/dev/stderr"
    failed = 1
}

function flush_item() {
    if (kind != "") print kind "\t" item
    kind = ""
    item = ""
}

function start(new_kind, text) {
    flush_item()
    kind = new_kind
    item = text
    seen[new_kind] = 1
}

function trim(text) {
    sub(/^ +/, "", text)
    sub(/ +$/, "", text)
    return text
}

# One line of a block, without the comment's own " * ".
function block_line(line,   at) {
    if (line ~ /^Codes: /) start("CODES", substr(line, 8))
    else if (line ~ /^Blocking: /) {
        at = index(line, " Log: ")
        if (at == 0) {
            start("BLOCKING", substr(line, 11))
            return
        }
        start("BLOCKING", substr(line, 11, at - 11))
        start("LOG", substr(line, at + 6))
    } else if (line ~ /^  [A-Za-z][A-Za-z0-9_, ]*  +[^ ]/ && kind != "CODES" && kind != "LOG") {
        match(line, /^  [A-Za-z][A-Za-z0-9_,]*( [A-Za-z0-9_,]+)*  +/)
        start("PARAM", trim(substr(line, 1, RLENGTH)) "\t" trim(substr(line, RLENGTH + 1)))
    } else if (line ~ /^  [^ ]/ && (kind == "BRIEF" || kind == "PARAM")) start("TEXT", trim(line))
    else item = item " " trim(line)
}

/^\/\*$/ {
    inside = 1
    name = ""
    count = 0
    next
}

inside && /^ \*\/$/ {
    inside = 0
    if (name == "") next
    at_block = 1
    next
}

inside {
    line = $0
    sub(/^ \*( |$)/, "", line)
    if (name == "" && line ~ /^[A-Z][A-Za-z0-9_]*: / && line !~ /^kesta/) {
        name = line
        sub(/:.*/, "", name)
    }
    if (name != "") lines[++count] = line
    else if (line ~ /^ ?[0-9]+\. /) {
        number = trim(line)
        sub(/\..*/, "", number)
        text = line
        sub(/^ ?[0-9]+\. /, "", text)
        conventions[number] = text
        last = number
    } else if (last != "" && line ~ /^    /) conventions[last] = conventions[last] " " trim(line)
    next
}

/^KESTA_API / { prototype = "" }

/^KESTA_API / || prototype != "" {
    prototype = prototype (prototype == "" ? "" : " ") trim($0)
    if (prototype !~ /;$/) next
    text = prototype
    prototype = ""
    sub(/^KESTA_API /, "", text)
    declared = text
    sub(/\(.*/, "", declared)
    sub(/.*[ *]/, "", declared)
    if (!at_block || name != declared) {
        fail(declared " has no block of its own")
        next
    }
    at_block = 0
    delete seen
    print "FUNCTION\t" name
    sub(/^[^:]*: /, "", lines[1])
    start("BRIEF", lines[1])
    for (i = 2; i <= count; ++i) block_line(lines[i])
    flush_item()
    print "PROTOTYPE\t" text
    print "END\t"
    if (!seen["CODES"] && text !~ /^void /) fail(name " does not state its codes")
    if (!seen["BLOCKING"]) fail(name " does not state whether it blocks")
    if (!seen["LOG"]) fail(name " does not state what it logs")
    ++functions
}

END {
    for (i = 1; i in conventions; ++i) print "CONVENTION\t" i "\t" conventions[i]
    if (functions == 0) fail("no function found")
    exit failed
}
