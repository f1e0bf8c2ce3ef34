#!/bin/sh
# Checks a built shared library. It must export exactly the names of the list, need only the C library
# and the log, and have the old hash table. Its stack must not be executable. Every instruction must
# round as the sources say: none may be fused, and on 32-bit ARM none may be NEON's.
#
# With --interface-3, the library is one for Android 4.3 to 13. It must export only its record, which has
# 7 words instead of 9, and its segments must begin at pages of 16 KB.
#
# With --instructions, its exported names aren't checked, which differ from compiler to compiler.
#
# usage: check-library.sh [--interface-3 | --instructions] LIBRARY [PREFIX of the binutils]
set -eu
form=--interface-2
case $1 in --*) form=$1; shift ;; esac
library=$1
prefix=${2:-}
here=$(dirname "$0")
failed=0
fail() { echo "check-library: $*" >&2; failed=1; }

if [ "$form" = --interface-3 ]; then
  exported=$("${prefix}nm" -D --defined-only "$library" | sed 's/^[0-9a-f]* . //')
  [ "$exported" = AELI ] || fail "exports $(echo "$exported" | wc -l) names instead of AELI alone"
  case $("${prefix}readelf" -h "$library" | sed -n 's/ *Class: *//p') in
    ELF32) bytes=28 ;;
    *) bytes=48 ;;
  esac
  "${prefix}nm" -DS "$library" | grep -q "^[0-9a-f]* 0*$(printf %x "$bytes") D AELI\$" ||
    fail "AELI hasn't $bytes bytes"
  "${prefix}readelf" -lW "$library" | awk '$1 == "LOAD" { ++all } $1 == "LOAD" && $NF != "0x4000" { bad = 1 }
    END { exit bad || all < 2 }' || fail "segments that don't begin at pages of 16 KB"
elif [ "$form" = --interface-2 ]; then
  "${prefix}nm" -DC --defined-only "$library" | sed 's/^[0-9a-f]* . //' | sort -u |
    diff -u "$here/../cmake/exported_names.txt" - >&2 ||
    fail "the exported names differ from cmake/exported_names.txt"
fi

extra=$("${prefix}readelf" -d "$library" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' |
  grep -Ev '^(libc|libm|liblog|libpthread)\.so(\.6|\.0)?$' || true)
[ -z "$extra" ] || fail "needs $extra"

"${prefix}readelf" -d "$library" | grep -qF '(HASH)' || fail "no (HASH) table"

listing=$(mktemp)
trap 'rm -f "$listing"' EXIT
"${prefix}objdump" -d "$library" >"$listing"
# refuse WHAT PATTERN: fails if the pattern matches an instruction. An instruction is a line of raw
# bytes, tab, mnemonic and operands.
refuse() {
  found=$(sed -n 's/^ *[0-9a-f]*:\t//p' "$listing" | grep -vP '\t\.' | grep -P "$2" || true)
  [ -z "$found" ] && return
  fail "$(printf '%s\n' "$found" | wc -l) $1:"
  printf '%s\n' "$found" | head -n 5 >&2
}

# The pattern matches instructions that round a product and a sum only once, and the steps of
# reciprocals and square roots. VFP's vmla, vmls, vnmla and vnmls are allowed, because they round the
# product before they add it.
refuse "fused operations" \
  '\t(vf(n?m(add|sub|a|s)|m(addsub|subadd|al|sl))|fn?m(add|sub|ad|sb)|fn?ml[as]|fcmla|b?fmmla|bfml|bfdot|frecps|frsqrts)'
case $("${prefix}readelf" -h "$library" | sed -n 's/ *Machine: *//p') in
  ARM)
    # NEON flushes subnormal floats to zero. VFPv3-D16 has neither NEON nor the upper 16 registers.
    encodings='^(f[23]|f4[02468ace])[0-9a-f]{5,} |^([ef]f|f9[02468ace])..? ' # in ARM and Thumb state
    others='\tvdup|\tvmov[a-z]*\.[su]?(8|16)\t|\tv.*\t.*\b(q\d|d(1[6-9]|2\d|3[01]))\b'
    refuse "NEON instructions or registers" "$encodings|$others" ;;
esac

"${prefix}readelf" -lW "$library" | grep -q 'GNU_STACK.* RWE' && fail "an executable stack"

[ "$failed" -eq 0 ] && echo "check-library: $library passed"
exit "$failed"
