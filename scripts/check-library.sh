#!/bin/sh
# What must hold of a built shared library beyond its samples: it exports what the list names and
# nothing else, needs the C library and the log alone, has the old hash table, and holds no fused
# multiply-add; its stack isn't executable.
#   check-library.sh LIBRARY [PREFIX of the binutils]
set -eu
library=$1
prefix=${2:-}
here=$(dirname "$0")
failed=0
fail() { echo "check-library: $*" >&2; failed=1; }

"${prefix}nm" -DC --defined-only "$library" | sed 's/^[0-9a-f]* . //' | sort -u |
  diff -u "$here/../cmake/exported_names.txt" - >&2 ||
  fail "the exported names differ from cmake/exported_names.txt"

extra=$("${prefix}readelf" -d "$library" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' |
  grep -Ev '^(libc|libm|liblog|libpthread)\.so(\.6|\.0)?$' || true)
[ -z "$extra" ] || fail "needs $extra"

"${prefix}readelf" -d "$library" | grep -qF '(HASH)' || fail "no (HASH) table"

fused=$("${prefix}objdump" -d "$library" |
  grep -ciE '[[:space:]](vfn?m(add|sub)|vfn?m[as]|fn?m(add|sub)|fml[as]|vfm[as])' || true)
[ "$fused" -eq 0 ] || fail "$fused fused multiply-adds"

"${prefix}readelf" -lW "$library" | grep -q 'GNU_STACK.* RWE' && fail "an executable stack"

[ "$failed" -eq 0 ] && echo "check-library: $library passed"
exit "$failed"
