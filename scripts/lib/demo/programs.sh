# shellcheck shell=bash disable=SC2034,SC2154 # the files share their variables
# Starts and ends the programs that run in the background of the demo.

work=$(mktemp -d)
children=()
clean_up() {
    local child
    trap - EXIT
    for child in ${children[@]+"${children[@]}"}; do
        kill "$child" 2>/dev/null || true
    done
    wait
    umount -l /dev/stick "$work/stick" 2>/dev/null || true
    rm -rf "$work" 2>/dev/null || true # a mounted directory is removed with the sandbox
}
trap clean_up EXIT
trap 'exit 130' INT
trap 'exit 143' TERM HUP

# start NAME COMMAND...: starts it in the background. Its output is in $work/NAME.out and .err, its
# process id in $pid.
start() {
    local name=$1
    shift
    "$@" >"$work/$name.out" 2>"$work/$name.err" </dev/null &
    pid=$!
    children+=("$pid")
}

# terminate PID: ends a program with SIGTERM and stores its exit status in $status.
terminate() {
    local child kept=()
    kill "$1"
    status=0
    wait "$1" || status=$?
    for child in "${children[@]}"; do
        [ "$child" = "$1" ] || kept+=("$child")
    done
    children=(${kept[@]+"${kept[@]}"})
}

lines_of() { wc -l <"$1"; }
has_lines() { [ "$(lines_of "$1")" -ge "$2" ]; }
contains() { grep -qF -- "$2" "$1" 2>/dev/null; }
new_lines() { tail -n "+$(($2 + 1))" "$1"; }
