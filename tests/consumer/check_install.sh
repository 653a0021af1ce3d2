#!/bin/sh
# check_install.sh BUILD LIBDIR DDS VERSION
#
# Installs the build in BUILD into an empty directory, component by component, and compares the
# files with the expected ones. Then moves the tree and builds the consumers against it.
set -eu

build=$1 libdir=$2 dds=$3 version=$4
here=$(cd "$(dirname "$0")" && pwd)
source=$(cd "$here/../.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

listed() { (cd "$1" && find . ! -type d | sed 's/^\.\///' | LC_ALL=C sort); }
compare() {
    diff -u --label "$1, expected" "$work/expected" --label "$1, installed" "$work/installed" >&2 || {
        echo "the component $1 does not contain the expected files" >&2
        exit 1
    }
}

DESTDIR=$work/runtime cmake --install "$build" --prefix /opt/tavo --component runtime >/dev/null
listed "$work/runtime/opt/tavo" >"$work/installed"
printf '%s\n' "$libdir/libtavo.so.${version%%.*}" "$libdir/libtavo.so.$version" >"$work/expected"
compare runtime

DESTDIR=$work/development cmake --install "$build" --prefix /opt/tavo --component development >/dev/null
listed "$work/development/opt/tavo" | sed 's/tavoTargets-[a-z]*\.cmake/tavoTargets-CONFIG.cmake/' >"$work/installed"
{
    (cd "$source" && find include -name '*.h')
    echo include/kvr/api/version.h
    [ "$dds" = OFF ] || echo include/tavo/rmi/dds_service_sdk.h
    for file in libtavo.so pkgconfig/tavo.pc cmake/tavo/tavoConfig.cmake cmake/tavo/tavoConfigVersion.cmake \
        cmake/tavo/tavoTargets.cmake cmake/tavo/tavoTargets-CONFIG.cmake; do
        echo "$libdir/$file"
    done
} | if [ "$dds" = OFF ]; then grep -v '^include/kvr/api/mdw/'; else cat; fi | LC_ALL=C sort >"$work/expected"
compare development

# No file may refer to the source or build tree.
if grep -rIlF -e "$source" -e "$build" "$work/runtime" "$work/development" >&2; then
    echo "these files name the source or the build tree" >&2
    exit 1
fi

mkdir "$work/moved"
cp -a "$work/runtime/opt" "$work/development/opt" "$work/moved"
rm -rf "$work/runtime" "$work/development"
"$here/use_library.sh" "$work/moved" /opt/tavo "$libdir" "$dds" "$version"
