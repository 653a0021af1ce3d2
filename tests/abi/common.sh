# shellcheck shell=sh
# Shared by the comparisons and by scripts/abi-accept. Source it; it only defines functions.

# exported LIBRARY: lists every exported symbol with its kind and version. Weak symbols count as
# strong ones, because that choice is the compiler's.
exported() {
    nm -D --defined-only "$1" | awk '$2 != "A" { print ($2 == "W" ? "T" : $2), $3 }' | LC_ALL=C sort -u
}

# describe LIBRARY HEADERS OUT: describes types and functions of the interface, as abidw reads them
# from the debug information.
describe() {
    abidw --headers-dir "$2" --no-corpus-path --no-comp-dir-path --no-show-locs --no-parameter-names --no-elf-needed \
        --drop-private-types --exported-interfaces-only --type-id-style hash "$1" |
        sed "s|path='${2%/include}/|path='|" >"$3" # without the location of the sources
}
