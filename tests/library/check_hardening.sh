#!/bin/sh
# Checks that built files carry the protections of a release: read-only relocations bound at start, position
# independence, guarded stacks, checked library calls, a stack that is not executable.
#
#   check_hardening.sh READELF FILE...
set -eu
readelf=$1
shift
failures=0

expect() { # NAME FILE PATTERN TEXT
    printf '%s\n' "$4" | grep -qE -- "$3" && return
    echo "$2: no $1"
    failures=$((failures + 1))
}

for file in "$@"; do
    dynamic=$("$readelf" --wide --dynamic "$file")
    headers=$("$readelf" --wide --file-header --program-headers "$file")
    symbols=$("$readelf" --wide --symbols "$file")
    expect "relocations made read-only" "$file" 'GNU_RELRO' "$headers"
    expect "binding at start" "$file" 'BIND_NOW|FLAGS_1.*NOW' "$dynamic"
    expect "position independence" "$file" 'Type: *DYN' "$headers"
    expect "plain stack" "$file" 'GNU_STACK .* RW ' "$headers"
    expect "stack protector" "$file" '__stack_chk_fail' "$symbols"
    expect "checked library calls" "$file" '__[a-z]*(printf|mem[a-z]+|str[a-z]+)_chk' "$symbols"
done
[ "$failures" -eq 0 ]
