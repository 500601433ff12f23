#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Compiles every public header by itself, without a warning, in each standard it promises.
#
#   headers.sh INCLUDE_DIRECTORY COMPILER...      the compilers by their C++ names: g++ clang++
set -euo pipefail
include=$1
shift
failed=0

c_name() { case $1 in g++) echo gcc ;; *) echo "${1%++}" ;; esac; }

# Reads the header twice, so that a missing guard shows too.
compile() {
    local compiler=$1 language=$2 standard=$3 header=$4
    printf '#include <tarnutil/%s>\n#include <tarnutil/%s>\nint main(void);\n' "$header" "$header" |
        "$compiler" -x "$language" -std="$standard" -I"$include" -Wall -Wextra -Wpedantic -Wshadow \
            -Wconversion -Werror -DOPENSSL_API_COMPAT=0x10002000L -fsyntax-only - ||
        { echo "$header does not compile alone under $compiler -std=$standard"; failed=1; }
}

# The plain-function headers are those whose names are in lower case.
for path in "$include"/tarnutil/*.h; do
    header=$(basename "$path")
    for compiler in "$@"; do
        for standard in c++11 c++14 c++17 c++20; do compile "$compiler" c++ "$standard" "$header"; done
        case $header in
            [a-z]*) for standard in c99 c11; do compile "$(c_name "$compiler")" c "$standard" "$header"; done ;;
        esac
    done
done
exit $failed
