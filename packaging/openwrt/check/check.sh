#!/bin/sh
# check.sh: checks the OpenWrt recipes without a buildroot. The stand-ins beside this file run the
# recipes' own steps, so make reads all of them. The packages must hold what CMake installs. The
# application of the feed's page must build against the staged library. The service script must turn
# its settings into the agent's arguments.
set -eu

[ $# -eq 0 ] || {
    echo "usage: ${0##*/}" >&2
    exit 2
}

here=$(cd "$(dirname "$0")" && pwd)
source=$(cd "$here/../../.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() {
    echo "OpenWrt recipes: $*" >&2
    exit 1
}

# A buildroot reaches the recipes of a feed through links.
ln -s "$here/.." "$work/feed"
ln -s feed/libtavo "$work/libtavo"
ln -s feed/libpaho-mqtt-c "$work/libpaho-mqtt-c"
recipe() {
    folder=$1
    shift
    make -s -C "$work/$folder" TOPDIR="$here" INCLUDE_DIR="$here" BUILD_DIR="$work/build" \
        OUT="$work" "$@"
}
files() { (cd "$1" && find . ! -type d | LC_ALL=C sort); }

# --- the recipes describe themselves ------------------------------------------------------------

version=$(sed -n 's/^project(tavo VERSION \([0-9.]*\).*/\1/p' "$source/CMakeLists.txt")
recipe libtavo describe >"$work/output"
grep -qx "version $version" "$work/output" || fail "its version is not $version"
grep -q -e '-DTAVO_DDS=OFF' "$work/output" || fail "DDS is not left out by default"
grep -q -e '-DTAVO_BUILD_AGENT=OFF' "$work/output" || fail "the agent is built although it is not selected"
grep -qx 'missing ' "$work/output" || fail "$(grep ^missing "$work/output")"
recipe libtavo CONFIG_LIBTAVO_DDS=y describe >"$work/output"
grep -q -e '-DTAVO_DDS=CYCLONEDDS' "$work/output" || fail "its option does not enable DDS"
if recipe libtavo TAVO_SOURCE_DIR="$work" all >/dev/null 2>"$work/output"; then
    fail "it builds without sources"
fi
grep -q 'does not hold libtavo' "$work/output" || fail "it does not report missing sources"
recipe libpaho-mqtt-c describe >"$work/output"
grep -qx 'package libpaho-mqtt-c' "$work/output" || fail "the recipe of Paho cannot be read"

# --- libtavo and tavo-agent ---------------------------------------------------------------------

rm -rf "$work/build"
recipe libtavo CONFIG_PACKAGE_tavo-agent=y all >"$work/log" 2>&1 || {
    tail -n 40 "$work/log" >&2
    fail "the recipe of libtavo does not build"
}
files "$work/package" >"$work/files"
printf '%s\n' "./libtavo/usr/lib/libtavo.so.${version%%.*}" "./libtavo/usr/lib/libtavo.so.$version" \
    ./tavo-agent/etc/config/tavo-agent ./tavo-agent/etc/init.d/tavo-agent \
    ./tavo-agent/usr/bin/tavo-rpc ./tavo-agent/usr/sbin/tavo-agent |
    diff -u - "$work/files" >&2 || fail "the packages do not contain the expected files"
files "$work/build/libtavo-$version/ipkg-install" >"$work/installed"
grep -qx './usr/lib/pkgconfig/tavo.pc' "$work/installed" ||
    fail "tavo.pc is not where the buildroot looks for it"
files "$work/staging" | diff -u "$work/installed" - >&2 || fail "files are not staged"
"$source/tests/consumer/use_library.sh" "$work/staging" /usr lib OFF "$version" >/dev/null

# --- the application of the feed's page ---------------------------------------------------------

# block LANGUAGE: prints the first block of that language on the page.
block() { awk -v start="\`\`\`$1" '$0 == start { on = 1; next } on && /^```/ { exit } on' "$here/../README.md"; }
mkdir -p "$work/report/src"
block make >"$work/report/Makefile"
block cmake >"$work/report/src/CMakeLists.txt"
awk '/^```cpp/ { on = 1; next } on && /^```/ { exit } on' "$source/README.md" \
    >"$work/report/src/report.cpp"
recipe report all >"$work/log" 2>&1 || {
    tail -n 40 "$work/log" >&2
    fail "the application of the feed's page does not build"
}
LD_LIBRARY_PATH=$work/package/libtavo/usr/lib "$work/package/report/usr/bin/report" |
    grep -q '"kernel"' || fail "the application of the feed's page does not run"

# --- the service script -------------------------------------------------------------------------

# started SETTINGS: prints what the script makes procd start.
started() {
    mkdir -p "$work/config"
    printf '%s\n' "$1" >"$work/config/tavo-agent"
    sh "$here/rc.common" "$work/package/tavo-agent/etc/init.d/tavo-agent" "$work/config/tavo-agent"
}
expect() { printf '%s\n' "$1" | diff -u - "$work/output" >&2 || fail "$2"; }

started "$(cat "$work/package/tavo-agent/etc/config/tavo-agent")" >"$work/output"
expect "triggers tavo-agent" "the installed settings start an agent"
started "config agent 'main'
	option enabled '1'
	option name 'gw 7'
	list allow '/bin/df'
	list allow '/bin/echo'
	option idle '5'
	option log_limit '4096'
	option mqtt 'broker:8883'
	option tls '/etc/tavo'
	option base 'fleet/gw7'
	option requests '1'
	list remote_allow 'process.run'
config agent 'other'
	option enabled '1'
config agent 'off'
	option name 'off'" >"$work/output"
expect "instance main
command [/usr/sbin/tavo-agent] [--allow] [/bin/df] [--allow] [/bin/echo] [--idle] [5] [--log-limit] [4096] [--mqtt] [broker:8883] [--tls] [/etc/tavo] [--base] [fleet/gw7] [--requests] [--remote-allow] [process.run] [gw 7]
respawn [3600] [5] [0]
stderr [1]
instance other
command [/usr/sbin/tavo-agent] [gateway]
respawn [3600] [5] [0]
stderr [1]
triggers tavo-agent" "the service script does not start the expected commands"
# The agent must know every option that the script may pass.
agent=$work/package/tavo-agent/usr/sbin/tavo-agent
LD_LIBRARY_PATH=$work/package/libtavo/usr/lib "$agent" --help >"$work/help"
for option in $(sed -n 's/.*append_\(option\|flag\) "$section" [a-z_]* \([a-z-]*\)$/--\2/p' \
    "$here/../libtavo/files/tavo-agent.init") --allow --remote-allow; do
    grep -q -e "^  $option\b" "$work/help" || fail "the agent has no option $option"
done

echo "OpenWrt recipes: version $version, packages as installed, application built, service started"
