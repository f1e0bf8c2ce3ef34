#!/bin/sh
# Prints the ratios of bench/worst_cases.cpp, by processor time and by executed instructions (valgrind).
#
# usage: scripts/worst-cases.sh
set -eu
cd "$(dirname "$0")/.."
cmake --preset release -DORVANE_BENCH=ON >/dev/null
cmake --build --preset release --target worst_cases >&2
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
build/release/bench/worst_cases >"$folder/times"
valgrind --tool=callgrind --collect-atstart=no --callgrind-out-file="$folder/counts" \
    build/release/bench/worst_cases >"$folder/log" 2>&1
for dump in "$folder"/counts.*; do
    sed -n 's/^desc: Trigger: Client Request: /name\t/p; s/^summary: /count\t/p' "$dump"
done | awk -F '\t' -v times="$folder/times" '
    $1 == "name" { name = $2 }
    $1 == "count" { counts[name] = $2 }
    END {
        print "| call | time | instructions |\n|---|---:|---:|"
        while ((getline line < times) > 0) {
            split(line, word, "\t")
            # Each process case measures 385 calls.
            parts = word[1] ~ /^process/ ? 385 : 1
            if (!unit) unit = counts[word[1]] / parts
            printf "| %s | %s | %.3f |\n", word[1], word[2], counts[word[1]] / parts / unit
        }
    }'
