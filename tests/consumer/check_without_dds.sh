#!/bin/sh
# check_without_dds.sh SOURCE LIBDIR VERSION
#
# Builds the library without its DDS class, and checks what is installed of that.
set -eu

source=$1 libdir=$2 version=$3
build=$(mktemp -d)
trap 'rm -rf "$build"' EXIT

# Unoptimised: what is compared is which files there are and whether they can be used.
cmake -S "$source" -B "$build" -G Ninja -DTAVO_DDS=OFF -DTAVO_BUILD_AGENT=OFF -DTAVO_BUILD_EXAMPLES=OFF -DCMAKE_BUILD_TYPE=Debug \
    -DCMAKE_CXX_FLAGS_DEBUG=-O0 -DCMAKE_INSTALL_LIBDIR="$libdir" >"$build/log" 2>&1 &&
    cmake --build "$build" >>"$build/log" 2>&1 || { tail -n 40 "$build/log" >&2; exit 1; }
"$(dirname "$0")/check_install.sh" "$build" "$libdir" OFF "$version"
