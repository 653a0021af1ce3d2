#!/bin/sh
# check_without_dds.sh SOURCE LIBDIR VERSION
#
# Builds the library without its DDS class, and with a json-c outside the system's directories, and
# checks the installed files.
set -eu

source=$1 libdir=$2 version=$3
build=$(mktemp -d)
elsewhere=$(mktemp -d)
trap 'rm -rf "$build" "$elsewhere"' EXIT

mkdir "$elsewhere/include" "$elsewhere/lib"
headers=$(echo '#include <json-c/json_object.h>' | ${CXX:-g++} -E -x c++ - | sed -n 's|^# 1 "\(.*/json-c\)/json_object.h".*|\1|p' | head -n 1)
cp -r "$headers" "$elsewhere/include"
cp -L "$(${CXX:-g++} -print-file-name=libjson-c.so)" "$elsewhere/lib"

# Not optimised: this only checks which files exist and whether they can be used.
cmake -S "$source" -B "$build" -G Ninja -DTAVO_DDS=OFF -DTAVO_BUILD_AGENT=OFF -DTAVO_BUILD_EXAMPLES=OFF -DCMAKE_BUILD_TYPE=Debug \
    -DCMAKE_CXX_FLAGS_DEBUG=-O0 -DCMAKE_INSTALL_LIBDIR="$libdir" -DCMAKE_PREFIX_PATH="$elsewhere" >"$build/log" 2>&1 &&
    cmake --build "$build" >>"$build/log" 2>&1 || { tail -n 40 "$build/log" >&2; exit 1; }
for flag in "-I$elsewhere/include" "-L$elsewhere/lib -ljson-c"; do
    grep -qF -- " $flag" "$build/tavo.pc" || { echo "tavo.pc does not name $flag" >&2; exit 1; }
done
"$(dirname "$0")/check_install.sh" "$build" "$libdir" OFF "$version"
