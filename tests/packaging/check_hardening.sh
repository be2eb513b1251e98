#!/bin/sh
# Fails unless the ELF files given as arguments are hardened as optimised builds are.
set -eu

missing() {
    echo "$1: no $2" >&2
    exit 1
}

for file in "$@"; do
    readelf -lW "$file" | grep -q GNU_RELRO || missing "$file" "read-only relocations"
    readelf -dW "$file" | grep -Eq 'BIND_NOW|FLAGS_1.*NOW' || missing "$file" "binding at the start"
    readelf -hW "$file" | grep -q 'Type:.*DYN' || missing "$file" "position-independent code"
    readelf -lW "$file" | grep 'GNU_STACK' | grep -vq 'RWE' || missing "$file" "stack without code"
    readelf -sW "$file" | grep -q '__stack_chk_fail' || missing "$file" "stack protector"
done
