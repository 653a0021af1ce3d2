# Prepares a header for doxygen: a comment's line "/// Label:  text" becomes a paragraph with that
# heading. The lines that are indented under its text lose their indentation.
/^ *\/\/\/ @code/ { code = 1 }
/^ *\/\/\/ @endcode/ { code = 0 }
!code && match($0, /^ *\/\/\/ [A-Z][A-Za-z-]*:( +|$)/) {
    indent = $0
    sub(/\/\/\/.*/, "", indent)
    label = $0
    sub(/^ *\/\/\/ /, "", label)
    sub(/:.*/, "", label)
    print indent "/// @par " label
    rest = substr($0, RLENGTH + 1)
    print indent "/// " rest
    labelled = 1
    next
}
!/^ *\/\/\/ ./ { labelled = 0 }
labelled && !code { sub(/\/\/\/ +/, "/// ") }
{ print }
