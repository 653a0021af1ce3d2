#!/bin/sh
# compile_alone.sh HEADER|SOURCE STANDARDS COMPILER [FLAG...]
#
# Compiles a source that includes HEADER twice, or SOURCE, a file of user code, as each of the C++
# STANDARDS ("11 20"). Prints the compiler's messages. Fails if any compilation fails.
set -eu

compiled=$1
standards=$2
compiler=$3
shift 3

source=$(mktemp --suffix=.cpp) # not every compiler reads a source from standard input
trap 'rm -f "$source"' EXIT
case $compiled in
*.cpp) cat "$compiled" ;;
*) printf '#include <%s>\n#include <%s>\n' "$compiled" "$compiled" ;;
esac >"$source"

failed=0
for standard in $standards; do
    "$compiler" "-std=c++$standard" -Wall -Wextra -Wpedantic -Werror -fsyntax-only "$@" "$source" || {
        echo "$compiled does not compile as C++$standard with $compiler"
        failed=1
    }
done
exit $failed
