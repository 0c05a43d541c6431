#!/usr/bin/env bash
# hardeningTest.sh PROGRAM... - checks that programs are built as a release is: with stack protector, fortified calls of
# the C library, full RELRO and at an address of the system's choice.
set -euo pipefail

failures=0
# expect PROGRAM WHAT PATTERN OPTION: the report of `readelf OPTION` has the pattern.
expect() {
    if ! grep -qE -- "$3" <<<"$(readelf --wide "$4" "$1")"; then
        echo "FAILED: $1: no $2"
        failures=$((failures + 1))
    fi
}

for program in "$@"; do
    expect "$program" "stack protector" ' __stack_chk_fail(@| )' --dyn-syms
    expect "$program" "fortified calls" ' __(v?snprintf|memcpy|printf|fprintf|syslog|read)_chk(@| )' --dyn-syms
    expect "$program" "read-only relocations" 'GNU_RELRO' --program-headers
    expect "$program" "binding at the start" 'FLAGS.*\bNOW\b' --dynamic
    expect "$program" "position independence" 'Type: +DYN' --file-header
    expect "$program" "stack without code" 'GNU_STACK .* RW ' --program-headers
done
exit "$((failures > 0))"
