#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Reads back from the shared object what the hardening options promise.
#
#   hardening.sh LIBRARY
set -euo pipefail
library=$1
failed=0

promise() {
    local what=$1 command=$2 pattern=$3
    grep -q -- "$pattern" <<<"$($command)" || { echo "no $what: '$pattern' is not in $command"; failed=1; }
}
dynamic="readelf --wide --dynamic $library"
segments="readelf --wide --segments $library"
notes="readelf --wide --notes $library"
imports="nm --dynamic --undefined-only $library"

promise 'read-only relocations' "$segments" GNU_RELRO
promise 'immediate binding' "$dynamic" BIND_NOW
promise 'stack protector' "$imports" __stack_chk_fail
promise 'fortified calls' "$imports" '_chk@'
promise 'shadow stack' "$notes" SHSTK
promise 'soname' "$dynamic" 'libtarnutil\.so\.1\]'

if grep -q 'GNU_STACK.*RWE' <<<"$($segments)"; then echo 'the stack is executable'; failed=1; fi
if grep -q TEXTREL <<<"$($dynamic)"; then echo 'relocations in code'; failed=1; fi

# The object cannot declare indirect branch tracking while the C runtime's own start code lacks its
# marks; every function of ours that can be called from outside carries one.
unmarked=$(objdump --disassemble --no-show-raw-insn "$library" | awk -v names="$(nm --dynamic --defined-only "$library" | awk '$2 ~ /[TW]/ {sub(/@.*/, "", $3); print $3}')" '
    BEGIN { n = split(names, list, "\n"); for (i = 1; i <= n; i++) exported[list[i]] = 1 }
    /^[0-9a-f]+ <.*>:$/ { name = substr($2, 2, length($2) - 3); entry = name in exported; next }
    entry { if ($0 !~ /endbr64/) print name; entry = 0; seen++ }
    END { if (seen < 100) print "(only " seen + 0 " exported functions found)" }')
[ -z "$unmarked" ] || { echo "functions without a branch target mark: $unmarked"; failed=1; }
exit $failed
