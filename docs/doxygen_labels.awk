# Prepares a header for doxygen: a line "/// Label:  text" of a comment becomes a paragraph with that heading, and the lines that
# are indented under its text lose their indentation.
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
