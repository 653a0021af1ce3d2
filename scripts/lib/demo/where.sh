# Where a step happens.

# where PLACE WHAT...: on a terminal, a picture of the places that a step passes, from top to bottom,
# each with what happens there; WHAT is "" for a place that it does not reach.
where() {
    local joint=
    [ "${DEMO_TERMINAL:-}" = yes ] || return 0
    while [ $# -gt 0 ]; do
        [ -z "$joint" ] || printf '       %s%s%s\n' "$dim" "$joint" "$plain"
        if [ -n "$2" ]; then
            joint='|'
            printf '   %s%-10s%s %s\n' "$cyan" "$1" "$plain" "$2"
        else
            joint=' '
            printf '   %s%-10s (not reached)%s\n' "$dim" "$1" "$plain"
        fi
        shift 2
    done
}
