#!/bin/sh
# Checks that every assembly routine names a paragraph of docs/soft-float.md, and that every paragraph
# there is named in the code that it explains.
set -eu
cd "$(dirname "$0")/.."
page=docs/soft-float.md
failures=0
fail() {
    echo "check-soft-float: $*" >&2
    failures=1
}

sed -n 's/^## //p' "$page" | while read -r title; do
    grep -qF "\"$title\"" dsp/softfloat/* || echo "$title"
done >build/unnamed-paragraphs
while read -r title; do fail "nothing in dsp/softfloat names the paragraph $title"; done \
    <build/unnamed-paragraphs

for file in dsp/softfloat/*.S; do
    names=$(sed -n 's/.*docs\/soft-float.md, "\(.*\)"\.$/\1/p' "$file")
    routines=$(grep -c '^    push ' "$file") || true # none in files whose routines macros make
    [ "$(printf '%s\n' "$names" | grep -c .)" -ge "$routines" ] ||
        fail "$file has a routine that names no paragraph"
    printf '%s\n' "$names" | while read -r title; do
        grep -qxF "## $title" "$page" || echo "$file names $title, which isn't in $page"
    done >build/unknown-paragraphs
    while read -r line; do fail "$line"; done <build/unknown-paragraphs
done
[ "$failures" -eq 0 ] || exit 1
echo "check-soft-float: every routine and every paragraph is named"
