# shellcheck shell=bash disable=SC2034,SC2154 # the files share their variables
# Sends requests to the agent and compares the outcomes.

requests=$repo/agent/requests

# request FILE [OPTION...]: sends a file of agent/requests. Leaves what tavo-rpc printed in
# $response and its exit status in $status.
request() {
    local file=$1
    shift
    log_lines_before=$(lines_of /tmp/log.out)
    service_lines_before=$(lines_of /tmp/init.d.log)
    error_lines_before=$(lines_of "$work/agent.err")
    rm -rf "$work/before"
    cp -R /etc/config "$work/before"
    show "\$ tavo-rpc ${*:+$* }demo $file" <"$requests/$file"
    status=0
    response=$("$agent_bin/tavo-rpc" "$@" demo "$requests/$file") || status=$?
}

# unanswered_request FILE: sends a file without asking for its response, and waits for the line that
# the agent prints.
unanswered_request() {
    local before
    before=$(lines_of "$work/agent.out")
    request "$1" --no-answer
    await "the response" has_lines "$work/agent.out" $((before + 1))
    response=$(tail -n 1 "$work/agent.out")
}

# Each compares one outcome of the request with standard input.
response_is() { compare "response" "$response"; }
log_is() { compare "log" "$(new_lines /tmp/log.out "$log_lines_before")"; }
# log_is_done ID METHOD BYTES: compares the log with the two lines of a request without an error.
log_is_done() {
    printf 'INFO: tavo-agent: request %s\n' "$1 $2 ($3 bytes)" "$1 $2: done" | log_is
}
service_calls_are() { compare "calls of service scripts" "$(new_lines /tmp/init.d.log "$service_lines_before")"; }
commands_are() {
    compare "commands that the library ran" \
        "$(new_lines "$work/agent.err" "$error_lines_before" | sed -n 's/^Calling: //p')"
}
# The lines that were added and removed in all of /etc/config.
configuration_change_is() {
    compare "change of /etc/config/$1" \
        "$(diff -U 0 -r "$work/before" /etc/config | grep -v -e '^diff ' -e '^--- ' -e '^+++ ' -e '^@@ ' || true)"
}
nothing() { :; }
configuration_is_unchanged() { configuration_change_is "* (none)" < <(nothing); }
