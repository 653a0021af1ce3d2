#!/bin/sh
# use_library.sh ROOT PREFIX LIBDIR DDS VERSION
#
# Builds the two consumers outside every source and build tree, against the library installed under
# ROOT/PREFIX. Runs them and compares their output. DDS is ON when the class NQ_DDS_RMI_RUNTIME must
# exist.
set -eu

root=$1 prefix=$2 libdir=$3 dds=$4 version=$5
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cp -r "$here/consumer.cpp" "$here/find_package" "$here/pkg_config" "$work"
cd "$work"
expected="{ \"echo\": \"hello\" } aGVsbG8= 0 0
5
$version $version"
defines=
if [ "$dds" = ON ]; then
    expected="$expected
DDS"
    defines=-DCONSUMER_EXPECTS_DDS
fi

# A consumer must only need our library, json-c, whose handles are part of our interface, and the
# language's libraries.
export LDFLAGS="${LDFLAGS:-} -Wl,--no-as-needed" # shows every linked library, used or not
run() {
    needed=$(readelf -d "$2" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' |
        grep -vE '^(libstdc\+\+|libc\+\+|libc\+\+abi|libunwind|libm|libgcc_s|libc|libpthread|ld-linux.*)\.so\.' || true)
    [ "$(echo "$needed" | sed 's/^libjson-c\.so\.[0-9]*$/json-c/' | sort | paste -sd ' ')" = "json-c libtavo.so.1" ] ||
        { printf '%s: the consumer needs\n%s\n' "$1" "$needed" >&2; exit 1; }
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

# pkg-config must report this tree's version and directories. It must not report the system's
# directories. It must not report json-c's own include directory either, whose header names are too
# common.
[ "$(pkg-config --modversion tavo)" = "$version" ] || { echo "tavo.pc names another version than $version" >&2; exit 1; }
for flag in $(pkg-config --cflags --libs tavo); do
    case $flag in
    -L/usr/lib/*/*) ;; # ours, relative to tavo.pc
    -I/usr/include | -I*/json-c | -L/usr/lib | -L/usr/lib/*)
        echo "tavo.pc names a directory of the system: $flag" >&2
        exit 1
        ;;
    esac
done
case $(pkg-config --variable=libdir tavo) in
"$root$prefix"*) ;;
*) echo "tavo.pc names a place outside of the installed tree" >&2; exit 1 ;;
esac
provider=$(pkg-config --variable=dds_provider tavo)
case $dds:$provider in
OFF:OFF | ON:CYCLONEDDS | ON:OPENSPLICE) ;;
*) echo "tavo.pc names the DDS provider '$provider', but DDS is $dds" >&2; exit 1 ;;
esac
[ -e "$root$prefix/$libdir/libtavo.so.$version" ] || { echo "there is no libtavo.so.$version" >&2; exit 1; }
echo "find_package and pkg-config: tavo $version, DDS $dds"
