#!/bin/sh
# build_described.sh SOURCE BUILD OUT: describes the binary interface of a release build that carries debug information.
set -eu
. "$(dirname "$0")/common.sh"

mkdir -p "$2"
cmake -S "$1" -B "$2" -G Ninja -DTAVO_DDS=CYCLONEDDS -DTAVO_BUILD_EXAMPLES=OFF -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_CXX_COMPILER=g++ -DCMAKE_CXX_FLAGS=-g >"$2/log" 2>&1 &&
    cmake --build "$2" --target tavo >>"$2/log" 2>&1 || { tail -n 40 "$2/log" >&2; exit 1; }
describe "$2/src/libtavo.so" "$1/include" "$3"
