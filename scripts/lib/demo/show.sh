# shellcheck shell=bash disable=SC2034,SC2154 # the files share their variables
# Functions with which the demo shows and compares. Source it in the sandbox; it only defines
# functions and variables.

if [ "${DEMO_TERMINAL:-}" = yes ]; then
    bold=$'\e[1m' dim=$'\e[2m' red=$'\e[31m' green=$'\e[32m' cyan=$'\e[36m' plain=$'\e[0m'
else
    bold='' dim='' red='' green='' cyan='' plain=''
fi

steps=0
comparisons=0
differences=0

# pause: time to read, on a terminal.
pause() {
    if [ "${DEMO_TERMINAL:-}" = yes ] && [ "${DEMO_PACED:-}" != no ]; then
        sleep 1.2
    fi
}

# part TITLE
part() { printf '\n%s==== %s ====%s\n' "$bold$cyan" "$*" "$plain"; }

# step TITLE NARRATION...: begins a step; each NARRATION is a line.
step() {
    [ "$steps" -eq 0 ] || pause
    steps=$((steps + 1))
    printf '\n%s%d. %s%s\n' "$bold" "$steps" "$1" "$plain"
    shift
    [ $# -eq 0 ] || printf '   %s\n' "$@"
}

# Colours the lines of a file: added ones green, removed ones red.
coloured() {
    local line
    while IFS= read -r line || [ -n "$line" ]; do
        case $line in
        +*) printf '     %s%s%s\n' "$green" "$line" "$plain" ;;
        -*) printf '     %s%s%s\n' "$red" "$line" "$plain" ;;
        *) printf '     %s\n' "$line" ;;
        esac
    done
}

# show LABEL: prints standard input, indented, under a label.
show() {
    printf '   %s%s%s\n' "$dim" "$1" "$plain"
    coloured
}

# compare LABEL ACTUAL: shows the text ACTUAL under the label and compares it with standard input.
compare() {
    local expected
    expected=$(cat)
    comparisons=$((comparisons + 1))
    if [ "$2" = "$expected" ]; then
        show "$1" <<<"${2:-(nothing)}"
        return
    fi
    differences=$((differences + 1))
    show "$1" <<<"${2:-(nothing)}"
    printf '   %sNOT AS EXPECTED:%s %s\n' "$bold$red" "$plain" "$1"
    diff -u --label expected --label actual <(printf '%s\n' "$expected") <(printf '%s\n' "$2") | coloured || true
}

# await WHAT COMMAND...: waits until COMMAND succeeds, at most ten seconds.
await() {
    local what=$1 deadline=$((SECONDS + 10))
    shift
    until "$@"; do
        if [ "$SECONDS" -gt "$deadline" ]; then
            printf '   %sgave up waiting for %s%s\n' "$bold$red" "$what" "$plain"
            exit 1
        fi
        sleep 0.02
    done
}

# summary: prints the last line; fails when anything differed.
summary() {
    printf '\n'
    if [ "$differences" -eq 0 ]; then
        printf '%sAll %d comparisons as expected.%s\n' "$bold$green" "$comparisons" "$plain"
    else
        printf '%s%d of %d comparisons not as expected.%s\n' "$bold$red" "$differences" "$comparisons" "$plain"
        return 1
    fi
}
