#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The binary interface of the shared object, with the layouts: what a debugger knows of the public headers.
#
#   abi.sh LIBRARY           prints it
#   abi.sh --check LIBRARY   compares it with libtarnutil.abi beside this script
#
# The library has to be built by g++ with debug information. Of the standard library only the types that
# callers see are kept, and no places of this machine. docs/abi.md says how to renew the file.
set -euo pipefail
here=$(dirname "$(readlink -f "$0")")

interface() {
    abidw --headers-dir "$here/../../include/tarnutil" --drop-private-types --exported-interfaces-only \
        --suppressions "$here/abi.suppr" --type-id-style hash --no-corpus-path --no-comp-dir-path \
        --no-show-locs --no-parameter-names --no-elf-needed "$1" |
        sed "s|path='[^']*/util/|path='util/|"
}

if [ "$1" = --check ]; then
    now=$(mktemp --suffix=.abi)
    trap 'rm -f "$now"' EXIT
    interface "$2" >"$now"
    abidiff "$here/libtarnutil.abi" "$now"
else
    interface "$1"
fi
