#!/bin/sh
# Compiles the installed headers as hosts do: each alone, all together in every language level from C++11 on, and
# without a word from the compiler.
#
#   check_headers.sh INCLUDE_FOLDER COMPILER...
set -eu
include=$1
shift
cd "$include"
headers=$(find . -name '*.h' | sort)
[ -n "$headers" ]

compiles() { # COMPILER LEVEL HEADER...
    compiler=$1 level=$2
    shift 2
    printf '#include "%s"\n' "$@" |
        "$compiler" -std="$level" -I. -Wall -Wextra -Wpedantic -Werror -x c++ -fsyntax-only -
}

for compiler in "$@"; do
    for header in $headers; do compiles "$compiler" c++11 "$header"; done
    for level in c++11 c++14 c++17 c++20 c++2b gnu++11; do compiles "$compiler" "$level" $headers; done
    echo "$compiler: $(echo "$headers" | wc -l) headers"
done
