#!/bin/sh
# compile_alone.sh HEADER|SOURCE COMPILER [FLAG...]
#
# Compiles a source that includes HEADER twice, or SOURCE, a file of user code, as every C++
# standard that the headers support. Prints the compiler's messages. Fails if any compilation fails.
set -eu

compiled=$1
compiler=$2
shift 2

source=$(mktemp --suffix=.cpp) # not every compiler reads a source from standard input
trap 'rm -f "$source"' EXIT
case $compiled in
*.cpp) cat "$compiled" ;;
*) printf '#include <%s>\n#include <%s>\n' "$compiled" "$compiled" ;;
esac >"$source"

failed=0
for standard in 11 14 17 20; do
    "$compiler" "-std=c++$standard" -Wall -Wextra -Wpedantic -Werror -fsyntax-only "$@" "$source" || {
        echo "$compiled does not compile as C++$standard with $compiler"
        failed=1
    }
done
exit $failed
