# shellcheck shell=bash disable=SC2034,SC2154 # the files share their variables
# The small examples.

# private_dev: gives the sandbox a separate /dev with the image of a USB stick, .image. The host's
# remains unchanged. Fails where mounting a file system is not allowed.
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

# inotify_watches PID: true once the process has a watch and its main thread sleeps.
inotify_watches() {
    grep -qs '^inotify wd:' "/proc/$1/fdinfo/"* && grep -qs '^State:.S' "/proc/$1/status"
}

part "The small examples"

step "telemetry: the board's readings by MQTT" \
    "The simulated board takes its inputs from a state file."
where program "telemetry" \
    library "NQ_Gpio reads, NQ_Mqtt publishes" \
    broker "mosquitto, topics demo/board/..." \
    file "/dev/gpio"
start listener mosquitto_sub -h 127.0.0.1 -p "$port" -t 'demo/board/#' -v
await "the listener" contains "$work/broker.err" "demo/board/# (QoS"
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
await "the new reading" contains "$work/listener.out" "bin1 1"
compare "its message" "$(grep 'bin1 1' "$work/listener.out" | head -n 1)" <<<"demo/board/bin1 1"
terminate "$telemetry"
await "its last message" contains "$work/listener.out" offline
compare "exit status, last message and LED after SIGTERM" \
    "$status, $(tail -n 1 "$work/listener.out"), $(grep led_wan /tmp/gpio.state)" \
    <<<"0, demo/board/state offline, led_wan 0"

step "file_watch: what happens in a directory"
where program "file_watch" \
    library "FileSystemWatcher (inotify)" \
    file "the directory inbox"
mkdir "$work/inbox"
start watch "$bin/file_watch" "$work/inbox"
watch=$pid
await "the watch" contains "$work/watch.out" watching
show "\$ echo 1 >inbox/a; mv inbox/a inbox/b; rm inbox/b; rmdir inbox" </dev/null
(cd "$work" && echo 1 >inbox/a && mv inbox/a inbox/b && rm inbox/b && rmdir inbox)
await "the last event" contains "$work/watch.out" gone
terminate "$watch"
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

step "usb_media: a USB stick is plugged in and removed" \
    "A file system image appears as /dev/stick, in the sandbox's private /dev."
where program "usb_media" \
    library "AutoMount" \
    tool "mount, umount" \
    file "/dev/stick"
if private_dev; then
    start media "$bin/usb_media" stick "$work/stick"
    media=$pid
    await "usb_media" inotify_watches "$media"
    ln /dev/.image /dev/stick
    await "the files" contains "$work/media.out" photo.jpg
    await "all of them" contains "$work/media.out" lost+found
    rm /dev/stick
    await "the unmounting" contains "$work/media.out" "is unmounted"
    terminate "$media"
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

step "secret_file: encrypt and decrypt" "Both sides derive the key from texts that they share."
where program "secret_file" \
    library "NQ_Crypto" \
    file "message, message.enc, message.dec"
printf 'GW0123456789\n02:00:5e:10:20:30\n' >"$work/parts"
printf 'GW0123456789\n02:00:5e:10:20:31\n' >"$work/wrong_parts"
echo 'the password is swordfish' >"$work/message"
"$bin/secret_file" --encrypt --parts "$work/parts" "$work/message" "$work/message.enc"
compare "can the message be read in the encrypted file?" \
    "$(contains "$work/message.enc" swordfish && echo yes || echo no)" <<<no
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
where supervisor "writes and reads lines" \
    program "supervised" \
    library "StdInReader, NQ_Stream"
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
    await "the server" contains "$work/server.out" "running as server"
    await "the client" contains "$work/client.out" "running as client"
    terminate "$client"
    statuses=$status
    terminate "$server"
    compare "what both printed" "$(cat "$work/server.out" "$work/client.out")" <<'END'
running as server
stopped
running as client
stopped
END
    compare "exit statuses" "$statuses $status" <<<"0 0"
fi
