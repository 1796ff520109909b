# Turns the lines of blocks.awk into one man page for each function, in the folder -v folder=.
# -v date= and -v version= go into the footer. Conventions become kesta_unified_zrkukey.7.

# A line that begins with a point or a quote would be a request.
function roff(text) {
    gsub(/\\/, "\\e", text)
    gsub(/-/, "\\-", text)
    sub(/^[.']/, "\\\\\\&&", text)
    return text
}

function sentence(text) { return toupper(substr(text, 1, 1)) substr(text, 2) }

function header(title, section) {
    printf ".TH %s %s %s \"%s\" \"USB security key library\"\n", title, section, date, version > page
}

function heading(title) { print ".SH " title > page }

function put(text) { print roff(text) > page }

BEGIN { FS = "\t" }

$1 == "FUNCTION" {
    name = $2
    page = folder "/" name ".3"
    header(name, 3)
    params = texts = 0
    codes = blocking = log_text = ""
}
$1 == "BRIEF" { brief = $2 }
$1 == "PARAM" { param_names[++params] = $2; param_texts[params] = $3 }
$1 == "TEXT" { body[++texts] = $2 }
$1 == "CODES" { codes = $2 }
$1 == "BLOCKING" { blocking = $2 }
$1 == "LOG" { log_text = $2 }
$1 == "PROTOTYPE" { prototype = $2 }

$1 == "END" {
    summary = brief
    sub(/[.:;].*/, "", summary)
    heading("NAME")
    print name " \\- " roff(summary) > page
    heading("SYNOPSIS")
    print ".nf\n.B #include <kesta_unified_zrkukey.h>\n.PP" > page
    synopsis()
    print ".fi" > page
    heading("DESCRIPTION")
    put(sentence(brief))
    for (i = 1; i <= texts; ++i) put(body[i])
    if (params > 0) heading("PARAMETERS")
    for (i = 1; i <= params; ++i) {
        print ".TP\n.I " roff(param_names[i]) > page
        put(sentence(param_texts[i]))
    }
    if (codes != "") {
        heading("RETURN VALUE")
        put(codes)
    }
    heading("NOTES")
    put("Blocking: " blocking)
    print ".br" > page
    put("Log: " log_text)
    heading("SEE ALSO")
    print ".BR kesta_unified_zrkukey (7)" > page
    close(page)
}

# One parameter a line where the prototype is long.
function synopsis(   text) {
    text = prototype
    if (length(text) > 72) {
        sub(/\(/, "(\n    ", text)
        gsub(/, /, ",\n    ", text)
    }
    gsub(/\\/, "\\e", text)
    print ".B\n" text > page
}

$1 == "CONVENTION" {
    if (!started) {
        started = 1
        page = folder "/kesta_unified_zrkukey.7"
        header("kesta_unified_zrkukey", 7)
        heading("NAME")
        print "kesta_unified_zrkukey \\- conventions of the USB security key library" > page
        heading("DESCRIPTION")
        put("These conventions hold for each of the library's functions. A function's own page states what differs.")
    }
    print ".TP 4\n" $2 "." > page
    put($3)
}
