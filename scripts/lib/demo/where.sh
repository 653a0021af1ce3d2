# shellcheck shell=bash disable=SC2034,SC2154 # the files share their variables
# Where a step happens.

# where PLACE WHAT...: on a terminal, prints a picture of the places that a step passes, from top to
# bottom, each with what happens there. WHAT is "" for a place that it does not reach.
where() {
    local first=yes
    [ "${DEMO_TERMINAL:-}" = yes ] || return 0
    while [ $# -gt 0 ]; do
        [ -n "$first" ] || printf '       %s%s%s\n' "$dim" "${2:+|}" "$plain"
        first=
        if [ -n "$2" ]; then
            printf '   %s%-10s%s %s\n' "$cyan" "$1" "$plain" "$2"
        else
            printf '   %s%-10s (not reached)%s\n' "$dim" "$1" "$plain"
        fi
        shift 2
    done
}
