#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The names that the shared object exports.
#
#   exported_names.sh LIBRARY           prints them, each with its readable form
#   exported_names.sh --check LIBRARY   compares them with exported_names.txt beside this script
#
# To change the interface: edit cmake/libtarnutil.map, then print the names into exported_names.txt.
set -euo pipefail

exported() {
    nm --dynamic --defined-only "$1" | awk '$2 != "A" {print $3}' | sed 's/@@.*//' | LC_ALL=C sort -u |
        while read -r name; do printf '%s\t%s\n' "$name" "$(c++filt "$name")"; done
}

if [ "$1" = --check ]; then
    diff --unified=0 --label committed --label exported "$(dirname "$0")/exported_names.txt" <(exported "$2")
else
    exported "$1"
fi
