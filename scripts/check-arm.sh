#!/bin/sh
# Runs check-library.sh on the library that is built for the device, and checks more. The library must use
# no floating-point or vector unit and no instruction sets besides ARMv5TE's two. Calls from one set to the
# other must need no stubs. The library must have no writable data of its own.
#
# usage: check-arm.sh [LIBRARY]    one with its table of symbols
set -eu
cd "$(dirname "$0")/.."
library=${1:-build/arm-softfloat/libqth_orvane_ics_NOVFP.so}
prefix=arm-linux-gnueabi-
failures=0
"${prefix}readelf" -SW "$library" | grep -q ' \.symtab ' || { echo "check-arm: no symbols" >&2; exit 1; }

scripts/check-library.sh "$library" "$prefix" || failures=1

# expect_none NAME FOUND: fails unless FOUND is empty.
expect_none() {
    [ -z "$2" ] && return
    failures=$((failures + 1))
    echo "check-arm: $1:" >&2
    printf '%s\n' "$2" | head -n 10 >&2
}

listing=$(mktemp)
trap 'rm -f "$listing"' EXIT
"${prefix}objdump" -d --no-show-raw-insn "$library" >"$listing"
instructions=$(awk -F'\t' 'NF > 1 && $2 !~ /^\.(word|short|byte)/' "$listing" | wc -l)
if [ "$instructions" -lt 1000 ]; then
    echo "check-arm: only $instructions instructions in $library" >&2
    exit 1
fi

# No integer mnemonic of ARMv5TE begins with v or f; coprocessors 10 and 11 are the VFP.
expect_none "floating-point or vector instructions" \
    "$(awk -F'\t' '$2 ~ /^[vf]/' "$listing")"
expect_none "instructions for coprocessors" \
    "$(awk -F'\t' '$2 ~ /^(mcr|mrc|mcrr|mrrc|cdp|ldc|stc)/' "$listing")"
expect_none "attributes of a floating-point or vector unit" \
    "$("${prefix}readelf" -A "$library" | grep -E 'Tag_(FP_arch|VFP_arch|Advanced_SIMD|ABI_VFP_args)')"
expect_none "another instruction set than ARMv5TE" \
    "$("${prefix}readelf" -A "$library" | grep 'Tag_CPU_arch:' | grep -v 'v5TE$')"
expect_none "stubs between ARM and Thumb state" \
    "$("${prefix}readelf" -sW "$library" | grep -E '_(from_(arm|thumb)|veneer)$')"
# Only start-up code has writable data, a flag and a handle. Tables of addresses become read-only once
# they are relocated.
expect_none "writable data" \
    "$("${prefix}objdump" -t "$library" |
        awk '$4 ~ /^\.(data|bss)$/ || $3 ~ /^\.(data|bss)$/' |
        awk '$NF !~ /^(\.data|\.bss|completed\.0|__dso_handle|__TMC_END__)$/')"

[ "$failures" -eq 0 ] || exit 1
echo "check-arm: $instructions instructions, all ARMv5TE without floating point"
