#!/bin/sh
# Puts standard input between the two markers of a table in a document, or with --check fails if
# something else is there.
#
# usage: fill-table.sh DOCUMENT TABLE [--check]
#
# The markers are lines: <!-- TABLE: made by ... --> and <!-- end of TABLE -->.
set -eu
document=$1
table=$2
lines=$(mktemp)
filled=$(mktemp)
trap 'rm -f "$lines" "$filled"' EXIT
cat >"$lines"
awk -v begin="<!-- $table: " -v end="<!-- end of $table -->" -v lines="$lines" '
    index($0, begin) == 1 { print; while ((getline line < lines) > 0) print line; inside = 1; found = 1 }
    $0 == end { inside = 0 }
    !inside
    END { if (!found || inside) exit 1 }' "$document" >"$filled" || {
    echo "fill-table: no markers of $table in $document" >&2
    exit 1
}
if [ "${3:-}" != --check ]; then
    cat "$filled" >"$document"
elif ! diff -u "$document" "$filled" >&2; then
    echo "fill-table: $table in $document is not what was measured" >&2
    exit 1
fi
