# shellcheck shell=bash disable=SC2034,SC2154 # the files share their variables
# Starts the broker, a subscriber and the agent.

part "A gateway and its management agent"

step "Start a broker and the agent" \
    "The agent serves the socket /tmp/socketDDS/demo. It may run the program uci for its clients. It" \
    "also publishes its responses at an MQTT broker."
port=
for try in 1 2 3 4 5; do
    port=$((20000 + RANDOM % 20000))
    # A mosquitto that root starts changes to another user, who may not exist in a user namespace.
    printf '%s\n' "listener $port 127.0.0.1" "allow_anonymous true" "user root" >"$work/broker.conf"
    start broker mosquitto -v -c "$work/broker.conf"
    broker=$pid
    await "the broker" grep -q -e 'running$' -e 'Error' "$work/broker.err"
    contains "$work/broker.err" Error || break
done
start subscriber mosquitto_sub -h 127.0.0.1 -p "$port" -t 'gateways/#' -v
await "the subscriber" contains "$work/broker.err" "Sending SUBACK"
: >/tmp/init.d.log
start agent "$agent_bin/tavo-agent" --allow uci --mqtt "127.0.0.1:$port" demo
agent=$pid
await "the agent" contains "$work/agent.err" "Waiting for a connection..."
await "the connection" contains "$work/subscriber.out" online
compare "socket" "$(stat -c '%A %n' /tmp/socketDDS/demo)" <<'END'
srwx------ /tmp/socketDDS/demo
END
