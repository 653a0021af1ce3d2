# The demo's steps. Runs in the sandbox: /etc/config, /etc/init.d, /opt and /tmp are those of a simulated gateway that is
# gone with this shell.
set -euo pipefail
repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
agent_bin=$TAVO_BUILD_DIR/agent
bin=$TAVO_BUILD_DIR/examples
requests=$repo/agent/requests
. "$repo/scripts/lib/show.sh"

# --- the programs that run meanwhile

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
    rm -rf "$work" 2>/dev/null || true # a mounted directory goes with the sandbox
}
trap clean_up EXIT
trap 'exit 130' INT
trap 'exit 143' TERM HUP

# start NAME COMMAND...: in the background; outputs in $work/NAME.out and .err, process id in $pid.
start() {
    local name=$1
    shift
    "$@" >"$work/$name.out" 2>"$work/$name.err" </dev/null &
    pid=$!
    children+=("$pid")
}

# finish PID: ends a program by SIGTERM and shows its exit status in $status.
finish() {
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
holds() { grep -qF -- "$2" "$1" 2>/dev/null; }
new_lines() { tail -n "+$(($2 + 1))" "$1"; }

# private_dev: gives the sandbox a /dev of its own that holds an image of a USB stick, .image; the host's stays as it is.
# Fails where mounting a file system is not allowed.
private_dev() {
    local node stick=$work/contents dev=$work/dev
    mkdir "$stick" "$dev"
    echo '(a picture)' >"$stick/photo.jpg"
    mount -t tmpfs dev "$dev"
    truncate -s 1M "$dev/.image"
    mke2fs -q -t ext2 -O ^dir_index -d "$stick" "$dev/.image"
    mount -o loop "$dev/.image" "$stick" 2>/dev/null || return 1
    umount "$stick"
    for node in /dev/{null,zero,full,random,urandom,tty,loop-control,pts,shm,loop*}; do
        [ -e "$node" ] || continue
        if [ -d "$node" ]; then mkdir "$dev/${node##*/}"; else : >"$dev/${node##*/}"; fi
        mount --rbind "$node" "$dev/${node##*/}"
    done
    ln -s /proc/self/fd "$dev/fd"
    mount --rbind "$dev" /dev
}

# inotify_watches PID: true once the process watches something and its main thread has come to rest.
inotify_watches() {
    grep -qs '^inotify wd:' "/proc/$1/fdinfo/"* && grep -qs '^State:.S' "/proc/$1/status"
}

# --- requests

# request FILE: sends a file of agent/requests and waits for the response line, which it leaves in $response.
request() {
    logged=$(lines_of /tmp/log.out)
    asked=$(lines_of /tmp/init.d.log)
    diagnosed=$(lines_of "$work/agent.err")
    rm -rf "$work/before"
    cp -R /etc/config "$work/before"
    show "\$ tavo-rpc demo $1" <"$requests/$1"
    "$agent_bin/tavo-rpc" demo "$requests/$1"
    responses=$((responses + 1))
    await "the response" has_lines "$work/agent.out" "$responses"
    response=$(tail -n 1 "$work/agent.out")
}

# Each compares what came of the request with standard input.
response_is() { compare "response" "$response"; }
log_is() { compare "log" "$(new_lines /tmp/log.out "$logged")"; }
services_asked_are() { compare "service scripts were asked" "$(new_lines /tmp/init.d.log "$asked")"; }
commands_are() {
    compare "commands that the library ran" \
        "$(new_lines "$work/agent.err" "$diagnosed" | sed -n 's/^Calling: //p')"
}
# The lines that came and went in all of /etc/config.
configuration_change_is() {
    compare "change of /etc/config/$1" \
        "$(diff -U 0 -r "$work/before" /etc/config | grep -v -e '^diff ' -e '^--- ' -e '^+++ ' -e '^@@ ' || true)"
}
nothing() { :; }
configuration_is_unchanged() { configuration_change_is "* (none)" < <(nothing); }

# --- the steps

part "A gateway and its management agent"

step "Start a broker and the agent" \
    "The agent serves the socket /tmp/socketDDS/demo. It may run the program uci for its clients and" \
    "publishes its responses at an MQTT broker as well."
port=
for try in 1 2 3 4 5; do
    port=$((20000 + RANDOM % 20000))
    # As root it would change to a user of its own, which a user namespace may not have.
    printf '%s\n' "listener $port 127.0.0.1" "allow_anonymous true" "user root" >"$work/broker.conf"
    start broker mosquitto -v -c "$work/broker.conf"
    broker=$pid
    await "the broker" grep -q -e 'running$' -e 'Error' "$work/broker.err"
    holds "$work/broker.err" Error || break
done
start subscriber mosquitto_sub -h 127.0.0.1 -p "$port" -t 'gateways/#' -v
await "the subscriber" holds "$work/broker.err" "Sending SUBACK"
: >/tmp/init.d.log
start agent "$agent_bin/tavo-agent" --allow uci --mqtt "127.0.0.1:$port" demo
agent=$pid
await "the agent" holds "$work/agent.err" "Waiting for a connection..."
await "the connection" holds "$work/subscriber.out" online
responses=0
compare "socket" "$(stat -c '%A %n' /tmp/socketDDS/demo)" <<'END'
srwx------ /tmp/socketDDS/demo
END

step "Change the LAN address" \
    "An option with an empty value is dropped from the section; the service is restarted because the" \
    "request asks for it."
request 01-lan-address.json
response_is <<'END'
{"jsonrpc":"2.0","id":1,"result":{"config":"network","section":"lan","existed":true,"exists":true,"values":{"device":"br-lan","proto":"static","ipaddr":"192.168.7.1","netmask":"255.255.255.0","ip6assign":"60","dns":["1.1.1.1","8.8.8.8"]},"restarted":true}}
END
commands_are <<'END'
ubus call uci delete '{ "config": "network", "section": "lan", "options": [ "gateway" ] }'; uci commit network
ubus call uci set '{"config":"network","section":"lan","type":"interface","values":{"ipaddr":"192.168.7.1","gateway":""}}'; uci commit network
/etc/init.d/network restart
END
configuration_change_is network <<'END'
-	option ipaddr '192.168.1.1'
+	option ipaddr '192.168.7.1'
-	option gateway '192.168.1.254'
END
services_asked_are <<'END'
network restart
END
log_is <<'END'
INFO: tavo-agent: request 1 uci.apply (256 bytes)
INFO: tavo-agent: request 1 uci.apply: done
END

step "Create a section that does not exist" "A guest network; nothing is restarted."
request 02-guest-create.json
response_is <<'END'
{"jsonrpc":"2.0","id":2,"result":{"config":"network","section":"guest","existed":false,"exists":true,"values":{"proto":"static","ipaddr":"192.168.50.1","dns":["1.1.1.1","9.9.9.9"]},"restarted":false}}
END
commands_are <<'END'
ubus call uci add '{ "config": "network", "name": "guest", "type": "interface" }'; uci commit network
ubus call uci set '{"config":"network","section":"guest","type":"interface","values":{"proto":"static","ipaddr":"192.168.50.1","dns":["1.1.1.1","9.9.9.9"]}}'; uci commit network
END
configuration_change_is network <<'END'
+config interface 'guest'
+	option proto 'static'
+	option ipaddr '192.168.50.1'
+	list dns '1.1.1.1'
+	list dns '9.9.9.9'
+
END
services_asked_are < <(nothing)
log_is <<'END'
INFO: tavo-agent: request 2 uci.apply (269 bytes)
INFO: tavo-agent: request 2 uci.apply: done
END

step "Delete it again" "No values at all stand for the whole section."
request 03-guest-delete.json
response_is <<'END'
{"jsonrpc":"2.0","id":3,"result":{"config":"network","section":"guest","existed":true,"exists":false,"restarted":false}}
END
commands_are <<'END'
ubus call uci delete '{ "config": "network", "section": "guest" }'; uci commit network
END
configuration_change_is network <<'END'
-config interface 'guest'
-	option proto 'static'
-	option ipaddr '192.168.50.1'
-	list dns '1.1.1.1'
-	list dns '9.9.9.9'
-
END
services_asked_are < <(nothing)
log_is <<'END'
INFO: tavo-agent: request 3 uci.apply (136 bytes)
INFO: tavo-agent: request 3 uci.apply: done
END

step "Change DHCP" "The package dhcp belongs to the service dnsmasq."
request 04-dhcp.json
response_is <<'END'
{"jsonrpc":"2.0","id":4,"result":{"config":"dhcp","section":"lan","existed":true,"exists":true,"values":{"interface":"lan","start":"100","limit":"50","leasetime":"2h","dhcpv4":"server","dhcpv6":"server","ra":"server"},"restarted":true}}
END
configuration_change_is dhcp <<'END'
-	option limit '150'
-	option leasetime '12h'
+	option limit '50'
+	option leasetime '2h'
END
services_asked_are <<'END'
dnsmasq restart
END
log_is <<'END'
INFO: tavo-agent: request 4 uci.apply (218 bytes)
INFO: tavo-agent: request 4 uci.apply: done
END

step "Change the time servers" "A section called ntp belongs to the service sysntpd. Lists are arrays."
request 05-ntp.json
response_is <<'END'
{"jsonrpc":"2.0","id":5,"result":{"config":"system","section":"ntp","existed":true,"exists":true,"values":{"enabled":"1","enable_server":"0","server":["time.example.net"]},"restarted":true}}
END
configuration_change_is system <<'END'
-	list server '0.pool.example.net'
-	list server '1.pool.example.net'
+	list server 'time.example.net'
END
services_asked_are <<'END'
sysntpd restart
END
log_is <<'END'
INFO: tavo-agent: request 5 uci.apply (218 bytes)
INFO: tavo-agent: request 5 uci.apply: done
END

step "Describe the methods"
request 06-describe.json
response_is <<'END'
{"jsonrpc":"2.0","id":6,"result":{"methods":[{"name":"system.describe","description":"names and descriptions of all methods"},{"name":"uci.get","description":"reads a section of the configuration: config, section"},{"name":"uci.apply","description":"changes, creates or deletes (\"values\": {}) a section of the configuration: config, section, type, values, expect, restart"},{"name":"config.place","description":"places a file for an application or one of its agents: application, agent, directory, file, content, base64, restart"},{"name":"process.run","description":"runs one of the allowed programs: command, arguments"},{"name":"system.info","description":"name and directory of the agent, serial number, modem, companion applications and serial port of the gateway"},{"name":"gpio.get","description":"reads a signal: name (out0, bin0, bin1, temperature, voltage)"},{"name":"gpio.set","description":"sets a signal: name (led_sim, led_wan, led_usr, led_pwr, out0), value (0 or 1)"}]}}
END
configuration_is_unchanged
services_asked_are < <(nothing)
log_is <<'END'
INFO: tavo-agent: request 6 system.describe (57 bytes)
INFO: tavo-agent: request 6 system.describe: done
END

step "A malformed request" "It breaks off; the answer is an error, and the agent goes on."
request 07-malformed.json
response_is <<'END'
{"jsonrpc":"2.0","id":null,"error":{"code":-32700,"message":"Parse error","data":"unexpected end of data at byte 72"}}
END
configuration_is_unchanged
services_asked_are < <(nothing)
log_is <<'END'
INFO: tavo-agent: message (72 bytes)
ERROR: tavo-agent: message refused: -32700 Parse error: unexpected end of data at byte 72
END

step "An attempt to break in" \
    "The library puts the section's text between single quotes into a shell command. The agent refuses" \
    "single quotes, so nothing of this reaches a shell."
request 08-quote.json
response_is <<'END'
{"jsonrpc":"2.0","id":8,"error":{"code":-32602,"message":"Invalid params","data":"single quotes are not accepted"}}
END
configuration_is_unchanged
services_asked_are < <(nothing)
log_is <<'END'
INFO: tavo-agent: request 8 uci.apply (207 bytes)
ERROR: tavo-agent: request 8 uci.apply: -32602 Invalid params: single quotes are not accepted
END
compare "is there a file /tmp/broken-in?" "$([ -e /tmp/broken-in ] && echo yes || echo no)" <<'END'
no
END

step "Run a program" "The answer has its output, the raw wait status (exit code 1 is 256) and the exit code."
request 09-program.json
response_is <<'END'
{"jsonrpc":"2.0","id":9,"result":{"output":"uci: Entry not found\n","truncated":false,"raw_status":256,"exit_code":1,"signal":null}}
END
log_is <<'END'
INFO: tavo-agent: request 9 process.run (143 bytes)
INFO: tavo-agent: request 9 process.run: done
END

step "Run a program that is not allowed"
request 10-program-refused.json
response_is <<'END'
{"jsonrpc":"2.0","id":10,"error":{"code":-32602,"message":"Invalid params","data":"program \"reboot\" is not allowed"}}
END
log_is <<'END'
INFO: tavo-agent: request 10 process.run (105 bytes)
ERROR: tavo-agent: request 10 process.run: -32602 Invalid params: program "reboot" is not allowed
END

step "Ask about the gateway" "The serial number comes from the boot environment."
request 11-info.json
response_is <<END
{"jsonrpc":"2.0","id":11,"result":{"name":"tavo-agent","directory":"$(cd "$agent_bin" && pwd -P)","serial_number":"GW0123456789","cellular_modem":false,"applications":{"modbus2mqtt":true,"vexlor2red":false,"vexlor":false,"nodered":true},"port":{"id":"2","name":"RS232"}}}
END
log_is <<'END'
INFO: tavo-agent: request 11 system.info (54 bytes)
INFO: tavo-agent: request 11 system.info: done
END

step "Place an application's configuration file" "Its script is asked to restart it."
request 12-place-application.json
response_is <<'END'
{"jsonrpc":"2.0","id":12,"result":{"file":"/opt/apps/ZEQ/cfg/ZEQ.json","bytes":16,"agent_stopped":false,"application_restarted":true}}
END
compare "/opt/apps/ZEQ/cfg/ZEQ.json" "$(cat /opt/apps/ZEQ/cfg/ZEQ.json)" <<'END'
{"portID": "1"}
END
services_asked_are <<'END'
ZEQ/bin/run.sh restart
END
log_is <<'END'
INFO: tavo-agent: request 12 config.place (246 bytes)
INFO: tavo-agent: request 12 config.place: done
END

step "Place a file of an application's agent" "It arrives as base64; the agent is stopped, to be started anew."
request 13-place-agent.json
response_is <<'END'
{"jsonrpc":"2.0","id":13,"result":{"file":"/opt/apps/ZEQ/agents/meter/cfg/token","bytes":13,"agent_stopped":true,"application_restarted":false}}
END
compare "/opt/apps/ZEQ/agents/meter/cfg/token" "$(cat /opt/apps/ZEQ/agents/meter/cfg/token)" <<'END'
secret token
END
services_asked_are <<'END'
stopAgent.sh meter
END
log_is <<'END'
INFO: tavo-agent: request 13 config.place (292 bytes)
INFO: tavo-agent: request 13 config.place: done
END

step "Switch a LED on"
request 14-led.json
response_is <<'END'
{"jsonrpc":"2.0","id":14,"result":{"name":"led_usr","value":1}}
END
compare "state of the board" "$(grep '^led_' /tmp/gpio.state)" <<'END'
led_sim 0
led_wan 0
led_usr 1
led_pwr 1
END
log_is <<'END'
INFO: tavo-agent: request 14 gpio.set (94 bytes)
INFO: tavo-agent: request 14 gpio.set: done
END

step "Read the board's temperature"
request 15-temperature.json
response_is <<'END'
{"jsonrpc":"2.0","id":15,"result":{"name":"temperature","value":41}}
END
log_is <<'END'
INFO: tavo-agent: request 15 gpio.get (86 bytes)
INFO: tavo-agent: request 15 gpio.get: done
END

step "End the agent" "SIGTERM lets it finish, remove its socket and sign off at the broker."
logged=$(lines_of /tmp/log.out)
finish "$agent"
await "its farewell" holds "$work/subscriber.out" offline
compare "exit status" "$status" <<<0
compare "sockets left" "$(ls -A /tmp/socketDDS)" < <(nothing)
log_is <<'END'
INFO: tavo-agent: ended by SIGTERM
END
show "the first response as mosquitto_sub got it" < <(sed -n 2p "$work/subscriber.out")
compare "was every response published, in order, between online and offline?" \
    "$(diff <(echo online; cat "$work/agent.out"; echo offline) \
        <(sed 's|^gateways/demo/[a-z]* ||' "$work/subscriber.out") >/dev/null && echo yes || echo no)" <<<yes

part "The small examples"

step "telemetry: the board's readings by MQTT" \
    "The inputs are those of the simulated board's state file, which plays the world outside."
start listener mosquitto_sub -h 127.0.0.1 -p "$port" -t 'demo/board/#' -v
await "the listener" holds "$work/broker.err" "demo/board/# (QoS"
start telemetry "$bin/telemetry" --broker "127.0.0.1:$port" --topic demo/board
telemetry=$pid
await "the readings" has_lines "$work/listener.out" 5
compare "first messages as mosquitto_sub got them" "$(head -n 5 "$work/listener.out")" <<'END'
demo/board/state online
demo/board/temperature 41
demo/board/voltage 12050
demo/board/bin0 0
demo/board/bin1 0
END
compare "uplink LED" "$(grep led_wan /tmp/gpio.state)" <<<"led_wan 1"
show "a door contact closes: bin1 becomes 1 in the state file" </dev/null
sed -i 's/^bin1 0/bin1 1/' /tmp/gpio.state
await "the new reading" holds "$work/listener.out" "bin1 1"
compare "its message" "$(grep 'bin1 1' "$work/listener.out" | head -n 1)" <<<"demo/board/bin1 1"
finish "$telemetry"
await "its farewell" holds "$work/listener.out" offline
compare "exit status, last message and LED after SIGTERM" \
    "$status, $(tail -n 1 "$work/listener.out"), $(grep led_wan /tmp/gpio.state)" \
    <<<"0, demo/board/state offline, led_wan 0"

step "file_watch: what happens in a directory"
mkdir "$work/inbox"
start watch "$bin/file_watch" "$work/inbox"
watch=$pid
await "the watch" holds "$work/watch.out" watching
show "\$ echo 1 >inbox/a; mv inbox/a inbox/b; rm inbox/b; rmdir inbox" </dev/null
(cd "$work" && echo 1 >inbox/a && mv inbox/a inbox/b && rm inbox/b && rmdir inbox)
await "the last event" holds "$work/watch.out" gone
finish "$watch"
compare "what it printed" "$(sed "s|$work/||" "$work/watch.out")" <<'END'
watching
created inbox a
written inbox a
moved-away inbox a
moved-here inbox b
deleted inbox b
gone inbox
END
compare "exit status" "$status" <<<0

step "usb_media: a stick is plugged in and pulled out" \
    "A file system image appears as /dev/stick, in a /dev of the sandbox's own."
if private_dev; then
    start media "$bin/usb_media" stick "$work/stick"
    media=$pid
    await "usb_media" inotify_watches "$media"
    ln /dev/.image /dev/stick
    await "the files" holds "$work/media.out" photo.jpg
    await "all of them" holds "$work/media.out" lost+found
    rm /dev/stick
    await "the unmounting" holds "$work/media.out" "is unmounted"
    finish "$media"
    compare "what it and the library printed" "$(sed "s|$work|...|g" "$work/media.out")" <<'END'
AutoMount(PARS)
Directory .../stick does not exist, creating it...
SOMETHING HAPPNED: stick
WHAT: 256
Running: mount /dev/stick .../stick
usb_media: stick is mounted
usb_media: .../stick/lost+found
usb_media: .../stick/photo.jpg
SOMETHING HAPPNED: stick
WHAT: 512
Running: umount .../stick
usb_media: stick is unmounted
~AutoMount()
END
    compare "exit status" "$status" <<<0
else
    show "skipped: this user may not mount file systems" </dev/null
fi

step "secret_file: encrypt and decrypt" "The key comes from texts that both ends know."
printf 'GW0123456789\n02:00:5e:10:20:30\n' >"$work/parts"
printf 'GW0123456789\n02:00:5e:10:20:31\n' >"$work/wrong_parts"
echo 'the password is swordfish' >"$work/message"
"$bin/secret_file" --encrypt --parts "$work/parts" "$work/message" "$work/message.enc"
compare "can the message be read in the encrypted file?" \
    "$(holds "$work/message.enc" swordfish && echo yes || echo no)" <<<no
"$bin/secret_file" --decrypt --parts "$work/parts" "$work/message.enc" "$work/message.dec"
compare "decrypted" "$(cat "$work/message.dec")" <<<"the password is swordfish"
status=0
"$bin/secret_file" --decrypt --parts "$work/wrong_parts" "$work/message.enc" "$work/no" 2>"$work/secret.err" || status=$?
compare "with one digit of the key texts wrong: message and exit status" "$(sed "s|$work/||" "$work/secret.err")
$status" <<'END'
secret_file: message.enc: not encrypted with this key, or damaged
1
END

step "supervised: a line channel to a supervisor"
show "lines written to it: ping, name, what, quit" </dev/null
status=0
printf '%s\n' ping name what quit | "$bin/supervised" >"$work/supervised.out" || status=$?
compare "what came back" "$(cat "$work/supervised.out")" <<'END'
ping
= pong
name
= supervised
what
= unknown command: what
quit
= bye
END
compare "exit status" "$status" <<<0

if [ -x "$bin/dds_node" ]; then
    step "dds_node: the DDS RMI runtime, as server and as client" "Both join a DDS domain on this machine."
    domain=$((100 + RANDOM % 100))
    start server "$bin/dds_node" --local "$domain" server
    server=$pid
    start client "$bin/dds_node" --local "$domain" client
    client=$pid
    await "the server" holds "$work/server.out" "running as server"
    await "the client" holds "$work/client.out" "running as client"
    finish "$client"
    statuses=$status
    finish "$server"
    compare "what both printed" "$(cat "$work/server.out" "$work/client.out")" <<'END'
running as server
stopped
running as client
stopped
END
    compare "exit statuses" "$statuses $status" <<<"0 0"
fi

pause
summary
