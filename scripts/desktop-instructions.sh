#!/bin/sh
# Counts the instructions that the chain executes on x86-64 with everything on, for the library and
# the one with wider vectors, and the memory of an instance: in docs/performance.md.
#
# usage: desktop-instructions.sh
set -eu
cd "$(dirname "$0")/.."
bench=build/release/bench
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --preset release -DORVANE_BENCH=ON >/dev/null
cmake --build --preset release --target chain_load chain_load_avx2 count_instructions \
    instance_memory >/dev/null

# PROGRAM FRAMES: "instructions a frame, dearest call's of the mean".
count() {
    nm -nC "$bench/$1" >"$work/symbols"
    qemu-x86_64 -cpu max -plugin "$bench/count_instructions.so,symbols=$work/symbols" -d plugin \
        -D "$work/counts" "$bench/$1" "$2" music 2>/dev/null
    awk -F'\t' -v size="$2" '
        $1 == "calls" { calls = $2 }
        $1 == "worst" { worst = $2 }
        $1 == "count" { total += $3 }
        END { printf "%.0f | %.1f\n", total / calls / size, worst * calls / total }' "$work/counts"
}
row() {
    printf '| %s frames a call | %s | %s |\n' "$1" "$(count chain_load "$1")" \
        "$(count chain_load_avx2 "$1")"
}

scripts/fill_in.py --part docs/performance.md <<REGIONS
generated: desktop-instructions
| music, everything on | instructions a frame | dearest call, of the mean | with AVX2 | dearest call |
|---|---:|---:|---:|---:|
$(for frames in 256 1024 4096; do row "$frames"; done)

An instance takes $(($("$bench/instance_memory" 2>/dev/null) / 1024)) KiB.
end generated
REGIONS
