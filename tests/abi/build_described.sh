#!/bin/sh
# build_described.sh ARCHITECTURE SOURCE BUILD OUT: describes the binary interface of a release
# build with debug information, for x86_64, armhf or arm64.
set -eu
. "$(dirname "$0")/common.sh"

architecture=$1
source=$(cd "$2" && pwd)
build=$3
out=$4
case $architecture in
x86_64) set -- -DCMAKE_CXX_COMPILER=g++ ;;
armhf | arm64) set -- "-DCMAKE_TOOLCHAIN_FILE=$source/cmake/toolchain-debian.cmake" "-DTAVO_ARCHITECTURE=$architecture" ;;
*) echo "there is no description for $architecture" >&2; exit 1 ;;
esac

mkdir -p "$build"
cmake -S "$source" -B "$build" -G Ninja -DTAVO_DDS=CYCLONEDDS -DTAVO_BUILD_AGENT=OFF -DTAVO_BUILD_EXAMPLES=OFF -DCMAKE_BUILD_TYPE=Release \
    "$@" -DCMAKE_CXX_FLAGS=-g >"$build/log" 2>&1 &&
    cmake --build "$build" --target tavo >>"$build/log" 2>&1 || { tail -n 40 "$build/log" >&2; exit 1; }
describe "$build/src/libtavo.so" "$source/include" "$out"
