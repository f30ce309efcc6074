#!/bin/bash
# Fails when a library or program lacks what makes its faults harder to exploit: relocations that
# nobody can write to after the start, a guard for the stack, calls of the C library that check
# sizes, and marks of the places where indirect calls may land.
# usage: hardening.sh READELF OBJDUMP FILE...
readelf=$1 objdump=$2
shift 2
status=0
for file; do
    elf=$("$readelf" -lWd --dyn-syms "$file") || exit 1
    for part in GNU_RELRO BIND_NOW __stack_chk_fail '__[a-z]+_chk@'; do
        grep -qE "$part" <<<"$elf" && continue
        echo "$file has no $part"
        status=1
    done
    # Without the compiler's option only the few places of the C library's start files are marked.
    marks=$("$objdump" -d -j .text "$file" | grep -c endbr64)
    [ "$marks" -ge 100 ] && continue
    echo "$file has $marks places for indirect calls"
    status=1
done
exit $status
