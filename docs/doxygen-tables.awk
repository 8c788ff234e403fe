# Doxygen's view of a header: a paragraph of a /// comment that holds a table (two blanks between a name and its
# meaning, or indented lines) stays as it is typed; all others are running text.

function flush(    i, table) {
    for (i = 1; i <= count; i++) if (body[i] ~ /[^ .:;]  +[^ ]/ || body[i] ~ /^   +[^ ]/) table = 1
    # Four more blanks make it a block of typed text to Doxygen.
    for (i = 1; i <= count; i++) print indent "///" (table ? "    " : "") body[i]
    count = 0
}

/^ *\/\/\/( |$)/ {
    match($0, /^ */)
    indent = substr($0, 1, RLENGTH)
    text = substr($0, RLENGTH + 4)
    if (text == "") { flush(); print; next }
    body[++count] = text
    next
}

{ flush(); print }
END { flush() }
