#!/bin/sh
# build_described.sh ARCHITECTURE SOURCE BUILD OUT: describes the binary interface of a release build that carries debug
# information, for x86_64 or armhf.
set -eu
. "$(dirname "$0")/common.sh"

architecture=$1
source=$(cd "$2" && pwd)
build=$3
out=$4
case $architecture in
x86_64) compiler=-DCMAKE_CXX_COMPILER=g++ ;;
armhf) compiler=-DCMAKE_TOOLCHAIN_FILE=$source/cmake/toolchain-armhf.cmake ;;
*) echo "there is no description for $architecture" >&2; exit 1 ;;
esac

mkdir -p "$build"
cmake -S "$source" -B "$build" -G Ninja -DTAVO_DDS=CYCLONEDDS -DTAVO_BUILD_AGENT=OFF -DTAVO_BUILD_EXAMPLES=OFF -DCMAKE_BUILD_TYPE=Release \
    "$compiler" -DCMAKE_CXX_FLAGS=-g >"$build/log" 2>&1 &&
    cmake --build "$build" --target tavo >>"$build/log" 2>&1 || { tail -n 40 "$build/log" >&2; exit 1; }
describe "$build/src/libtavo.so" "$source/include" "$out"
