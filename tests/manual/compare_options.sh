#!/bin/sh
# compare_options.sh PAGE PROGRAM...: checks that the options of a manual page are those that
# PROGRAM --help prints, with the same arguments.
set -eu

page=$1
shift
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# In the page, an option follows the .TP of its paragraph: .BI \-\-name " ARGUMENT" or .B \-\-name.
awk '/^\.TP/ { tag = 1; next } tag { print; tag = 0 }' "$page" |
    sed -n 's/^\.BI\{0,1\} \(\\-\\-.*\)/\1/p' | sed 's/\\-/-/g; s/" \(.*\)"/\1/' | sort >"$work/page"
# In the help text, a line begins with each option; two blanks or the end of the line follow.
"$@" --help | sed -n 's/^  \(--[^ ]*\( [^ ]\{1,\}\)\{0,1\}\).*/\1/p' | sort >"$work/help"
[ -s "$work/help" ] || { echo "the help lists no options" >&2; exit 1; }
diff -u --label "$page" --label "help" "$work/page" "$work/help"
