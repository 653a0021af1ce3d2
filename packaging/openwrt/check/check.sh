#!/bin/sh
# check.sh: looks at the OpenWrt recipe without a buildroot. The stand-ins beside this file run the recipe's own steps, so that make
# reads all of it, and the files that it hands out are those that CMake installs.
set -eu

here=$(cd "$(dirname "$0")" && pwd)
source=$(cd "$here/../../.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

recipe() { make -s -C "$here/.." TOPDIR="$here" INCLUDE_DIR="$here" BUILD_DIR="$work/build" OUT="$work" "$recipe_goal"; }

version=$(sed -n 's/^project(tavo VERSION \([0-9.]*\).*/\1/p' "$source/CMakeLists.txt")
recipe_goal=version
[ "$(recipe)" = "$version" ] || { echo "the recipe's version is not $version" >&2; exit 1; }

recipe_goal=all
recipe >"$work/log" 2>&1 || { tail -n 40 "$work/log" >&2; exit 1; }
(cd "$work/package" && find . ! -type d | LC_ALL=C sort) >"$work/files"
printf '%s\n' "./usr/lib/libtavo.so.${version%%.*}" "./usr/lib/libtavo.so.$version" | diff -u - "$work/files" >&2 || {
    echo "the package holds other files than the library" >&2
    exit 1
}
# The development tree is all that CMake installs.
(cd "$work/build/libtavo-$version/ipkg-install" && find . ! -type d | LC_ALL=C sort) >"$work/installed"
(cd "$work/staging" && find . ! -type d | LC_ALL=C sort) | diff -u "$work/installed" - >&2 || {
    echo "InstallDev leaves files out" >&2
    exit 1
}
echo "OpenWrt recipe: version $version, file lists as installed"
