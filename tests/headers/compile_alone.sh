#!/bin/sh
# compile_alone.sh HEADER COMPILER [FLAG...]
#
# Compiles a source that includes HEADER first and then once more, as every C++ standard that the
# header is meant for. Prints what the compiler says and fails when any of them is refused.
set -eu

header=$1
compiler=$2
shift 2

failed=0
for standard in 11 14 17 20; do
    printf '#include <%s>\n#include <%s>\n' "$header" "$header" |
        "$compiler" "-std=c++$standard" -Wall -Wextra -Wpedantic -Werror -fsyntax-only "$@" -x c++ - || {
        echo "$header is refused as C++$standard by $compiler"
        failed=1
    }
done
exit $failed
