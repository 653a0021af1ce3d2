#!/bin/sh
# check_options.sh SOURCE_TREE: checks that every script of scripts/ and .ci/ prints the comment at
# its head with --help, and nothing else. With an unknown option, it must print "NAME: MESSAGE", an
# empty line and the same comment to standard error, and end with status 2.
set -eu

cd "$1"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
faults=0

# fault MESSAGE: prints it with what $script has printed.
fault() {
    echo "$script: $1"
    sed 's/^/    /' "$work/out" "$work/err"
    faults=$((faults + 1))
}

# status_of COMMAND...: prints its exit status; its output is in $work/out and $work/err.
status_of() {
    status=0
    "$@" >"$work/out" 2>"$work/err" </dev/null || status=$?
    echo "$status"
}

scripts=$(find scripts .ci -maxdepth 1 -type f | sort)
[ "$(echo "$scripts" | wc -l)" -gt 10 ]
for script in $scripts; do
    awk 'NR > 1 { if (!/^#/) exit; sub(/^# ?/, ""); print }' "$script" >"$work/usage"
    : >"$work/out"
    : >"$work/err"
    grep -qF "$script" "$work/usage" || fault "the comment at its head does not show how to call it"

    [ "$(status_of "$script" --help)" -eq 0 ] && cmp -s "$work/out" "$work/usage" && [ ! -s "$work/err" ] ||
        fault "--help does not print the comment alone"

    [ "$(status_of "$script" --no-such-option)" -eq 2 ] && [ ! -s "$work/out" ] &&
        head -n 1 "$work/err" | grep -q "^${script##*/}: ..*" &&
        { echo && cat "$work/usage"; } >"$work/expected" && tail -n +2 "$work/err" | cmp -s - "$work/expected" ||
        fault "an unknown option is not refused with the usage and status 2"
done
[ "$faults" -eq 0 ]
