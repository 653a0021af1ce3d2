# shellcheck shell=bash disable=SC2034,SC2154 # the files share their variables
# Ends the agent and compares what it published.

step "End the agent" "On SIGTERM the agent removes its socket and reports itself offline at the broker."
log_lines_before=$(lines_of /tmp/log.out)
terminate "$agent"
await "its last message" contains "$work/subscriber.out" offline
compare "exit status" "$status" <<<0
compare "sockets left" "$(ls -A /tmp/socketDDS)" < <(nothing)
log_is <<'END'
INFO: tavo-agent: ended by SIGTERM
END
show "the first response as mosquitto_sub got it" < <(sed -n 2p "$work/subscriber.out")
compare "was every response published, in order, between online and offline?" \
    "$(diff <(echo online; cat "$work/agent.out"; echo offline) \
        <(sed 's|^gateways/demo/[a-z]* ||' "$work/subscriber.out") >/dev/null && echo yes || echo no)" <<<yes
