#!/bin/sh
# compare_exports.sh LIBRARY RECORDED: compares the library's exports with the recorded list.
set -eu
. "$(dirname "$0")/common.sh"

exported=$(mktemp)
trap 'rm -f "$exported"' EXIT
exported "$1" >"$exported"
[ -s "$exported" ] || { echo "nothing is exported" >&2; exit 1; }
diff -u --label recorded --label exported "$2" "$exported" | c++filt -p || true
cmp -s "$2" "$exported" || { echo "The exports changed. If that is intended: scripts/abi-accept" >&2; exit 1; }
