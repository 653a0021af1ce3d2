#!/bin/sh
# check.sh: looks at the OpenWrt recipe without a buildroot. The stand-ins beside this file run the recipe's own steps, so that make
# reads all of it, and the files that it hands out are those that CMake installs.
set -eu

here=$(cd "$(dirname "$0")" && pwd)
source=$(cd "$here/../../.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() {
    echo "OpenWrt recipe: $*" >&2
    exit 1
}

# A feed reaches the recipe through links.
ln -s "$here/.." "$work/feed"
ln -s feed/libtavo "$work/libtavo"
recipe() { make -s -C "$work/libtavo" TOPDIR="$here" INCLUDE_DIR="$here" BUILD_DIR="$work/build" OUT="$work" "$@"; }

version=$(sed -n 's/^project(tavo VERSION \([0-9.]*\).*/\1/p' "$source/CMakeLists.txt")
recipe describe >"$work/said"
grep -qx "version $version" "$work/said" || fail "its version is not $version"
grep -q -e '-DTAVO_DDS=OFF' "$work/said" || fail "DDS is not left out by default"
grep -qx 'missing ' "$work/said" || fail "$(grep ^missing "$work/said")"
recipe CONFIG_LIBTAVO_DDS=y describe >"$work/said"
grep -q -e '-DTAVO_DDS=CYCLONEDDS' "$work/said" || fail "its option does not switch DDS on"
if recipe TAVO_SOURCE_DIR="$work" all >/dev/null 2>"$work/said"; then fail "it builds from nothing"; fi
grep -q 'does not hold libtavo' "$work/said" || fail "it does not tell of missing sources"

rm -rf "$work/build"
recipe all >"$work/log" 2>&1 || { tail -n 40 "$work/log" >&2; exit 1; }
(cd "$work/package" && find . ! -type d | LC_ALL=C sort) >"$work/files"
printf '%s\n' "./usr/lib/libtavo.so.${version%%.*}" "./usr/lib/libtavo.so.$version" | diff -u - "$work/files" >&2 ||
    fail "the package holds other files than the library"
# The development tree is all that CMake installs.
(cd "$work/build/libtavo-$version/ipkg-install" && find . ! -type d | LC_ALL=C sort) >"$work/installed"
grep -qx './usr/lib/pkgconfig/tavo.pc' "$work/installed" || fail "tavo.pc is not where the buildroot looks for it"
(cd "$work/staging" && find . ! -type d | LC_ALL=C sort) | diff -u "$work/installed" - >&2 || fail "files are not staged"
"$source/tests/consumer/use_library.sh" "$work/staging" /usr lib OFF "$version" >/dev/null
echo "OpenWrt recipe: version $version, file lists as installed, used from its staging directory"
