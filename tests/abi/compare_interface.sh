#!/bin/sh
# compare_interface.sh ARCHITECTURE SOURCE RECORDED: builds the library with debug information and
# compares its binary interface, types included, with the recorded one.
set -eu
. "$(dirname "$0")/common.sh"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$(dirname "$0")/build_described.sh" "$1" "$2" "$work/build" "$work/now.abi"
abidiff "$3" "$work/now.abi" || {
    echo "The binary interface changed. If that is intended: scripts/abi-accept" >&2
    exit 1
}
