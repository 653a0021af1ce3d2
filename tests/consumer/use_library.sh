#!/bin/sh
# use_library.sh ROOT PREFIX LIBDIR DDS
#
# Builds the two consumers, outside of every source and build tree, against the library installed below ROOT/PREFIX, runs
# them and compares what they print. DDS is ON when the class NQ_DDS_RMI_RUNTIME is to be there.
set -eu

root=$1 prefix=$2 libdir=$3 dds=$4
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cp -r "$here/consumer.cpp" "$here/find_package" "$here/pkg_config" "$work"
cd "$work"
expected='{ "echo": "hello" } aGVsbG8= 0 0'
defines=
if [ "$dds" = ON ]; then
    expected="$expected
DDS"
    defines=-DCONSUMER_EXPECTS_DDS
fi

# Of all libraries, a consumer is to ask for ours, and the language's.
export LDFLAGS="${LDFLAGS:-} -Wl,--no-as-needed" # what is linked is to show, used or not
run() {
    needed=$(readelf -d "$2" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' |
        grep -vE '^(libstdc\+\+|libc\+\+|libc\+\+abi|libunwind|libm|libgcc_s|libc|libpthread|ld-linux.*)\.so\.' || true)
    [ "$needed" = libtavo.so.1 ] || { printf '%s: the consumer needs\n%s\n' "$1" "$needed" >&2; exit 1; }
    printed=$(LD_LIBRARY_PATH="$root$prefix/$libdir" "$2")
    [ "$printed" = "$expected" ] || {
        printf '%s: the consumer printed\n%s\ninstead of\n%s\n' "$1" "$printed" "$expected" >&2
        exit 1
    }
}

export CXXFLAGS="${CXXFLAGS:-} -O1 -Wall -Wextra -Werror"
cmake -S find_package -B by-cmake -DCMAKE_PREFIX_PATH="$root$prefix" -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF >log 2>&1 &&
    cmake --build by-cmake >>log 2>&1 || { cat log >&2; exit 1; }
run find_package by-cmake/consumer

mkdir by-pkg-config
export PKG_CONFIG_PATH="$root$prefix/$libdir/pkgconfig"
make -s -C pkg_config OUT="$work/by-pkg-config" DEFINES="$defines"
run pkg-config by-pkg-config/consumer

# The version and the places that both tell are those of this tree.
version=$(pkg-config --modversion tavo)
case $(pkg-config --variable=libdir tavo) in
"$root$prefix"*) ;;
*) echo "tavo.pc names a place outside of the installed tree" >&2; exit 1 ;;
esac
[ -e "$root$prefix/$libdir/libtavo.so.$version" ] || { echo "tavo.pc tells version $version" >&2; exit 1; }
echo "find_package and pkg-config: tavo $version, DDS $dds"
