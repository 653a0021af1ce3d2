#!/bin/sh
# use.sh: uses the installed packages as users would, in a root directory with nothing else.
set -eu

fail() {
    echo "packages: $*" >&2
    exit 1
}

triplet=$(gcc -print-multiarch)
sh /consumer/use_library.sh "" /usr "lib/$triplet" ON \
    "$(dpkg-query -W -f '${Version}' libtavo-dev)" | sed 's/^/packages: /'

systemd-analyze verify --man=no /lib/systemd/system/tavo-agent.service || fail "the unit file is wrong"
if systemctl is-enabled --quiet tavo-agent.service; then fail "the installation enabled the agent"; fi

# Everything here is the installed version: the agent, tavo-rpc, the tools and the library.
cat >/request.json <<'END'
{"jsonrpc":"2.0","id":1,"method":"uci.apply","params":{"config":"network","section":"lan",
 "type":"interface","values":{"ipaddr":"192.168.7.1"},"restart":true}}
END
# Repeats tavo-rpc until it gets a response: the socket may exist before the agent serves it.
tavo-sandbox --root /gateway sh -c '
    tavo-agent demo >/dev/null & agent=$!
    for attempt in $(seq 50); do
        tavo-rpc --timeout 5 demo /request.json >/tmp/responses && break
        sleep 0.2
    done
    kill "$agent"
    wait "$agent"' || fail "the agent failed"
grep -q '"ipaddr":"192.168.7.1"' /gateway/tmp/responses || fail "$(cat /gateway/tmp/responses)"
grep -qx "	option ipaddr '192.168.7.1'" /gateway/etc/config/network || fail "the file was not changed"
grep -qx 'network restart' /gateway/tmp/init.d.log || fail "the service was not restarted"
echo "packages: an installed agent answered in the installed sandbox"

# The manual pages are intact, and purging the packages leaves nothing behind.
for page in man1/tavo-rpc.1.gz man1/tavo-sandbox.1.gz man8/tavo-agent.8.gz; do
    gzip -t "/usr/share/man/$page" || fail "no manual page $page"
done
dpkg --purge tavo-agent tavo-sandbox libtavo-dev libtavo1 >/dev/null
left=$(find / -xdev -name '*tavo*' -not -path '/debs/*' -not -path '/proc/*' -not -path '/var/*')
[ -z "$left" ] || fail "these files remain after the packages were purged: $left"
echo "packages: purged, no files remain"
