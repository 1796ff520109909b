# Doxygen's input filter: turns the public header's comments into Doxygen's own. The header itself
# stays readable as it stands. Line numbers are kept.

/^\/\*$/ { open = 1; in_paragraph = 0; print "/**"; next }

open && /^ \*\/$/ { open = 0; print; next }

# A comment of one line: before what it documents, or behind it.
!open && /^\/\* [^-].*\*\/$/ { sub(/^\/\*/, "/**"); print; next }
!open && /[^ ] +\/\* .*\*\/$/ { sub(/\/\* /, "/**< "); print; next }

!open { print; next }

{
    line = $0
    sub(/^ \*( |$)/, "", line)
    gsub(/</, "\\<", line)
    gsub(/#/, "\\#", line)
}

line ~ /^kesta_unified_zrkukey: / {
    sub(/^[^:]*: /, "", line)
    print " * @file\n * @brief " line
    next
}

# The numbered conventions.
line ~ /^ ?[0-9]+\. / {
    match(line, /[0-9]+\./)
    print " * - **" substr(line, RSTART, RLENGTH) "**" substr(line, RSTART + RLENGTH)
    next
}

line ~ /^[A-Z][A-Za-z0-9_]*: / && line !~ /^(Codes|Blocking|Log): / {
    sub(/^[^:]*: /, "", line)
    print " * @brief " line
    next
}

line ~ /^Codes: / {
    in_paragraph = 1
    print " * @par Codes\n * " substr(line, 8)
    next
}
line ~ /^Blocking: / {
    gsub(/ Log: /, "\n * @par Log\n * ", line)
    print " * @par Blocking\n * " substr(line, 11)
    next
}

line ~ /^  [A-Za-z][A-Za-z0-9_, ]*  +[^ ]/ {
    match(line, /^  [A-Za-z][A-Za-z0-9_,]*( [A-Za-z0-9_,]+)*  +/)
    names = substr(line, 1, RLENGTH)
    gsub(/ /, "", names)
    in_paragraph = 0
    print " * @param " names " " substr(line, RLENGTH + 1)
    next
}

# A paragraph of its own, after the first sentence or the parameters.
line ~ /^  [^ ]/ {
    if (!in_paragraph) print " * @par"
    in_paragraph = 1
    print " * " line
    next
}

{ print " * " line }
