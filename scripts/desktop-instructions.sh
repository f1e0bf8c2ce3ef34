#!/bin/sh
# Counts the instructions that the chain executes with everything on, on processors with a
# floating-point unit: x86-64 (also with AVX2), aarch64 and ARMv7. Fills in docs/performance.md, with
# the memory that an instance takes.
#
# usage: desktop-instructions.sh [--limits]    --limits: count on ARM only; fail above the limits
set -eu
cd "$(dirname "$0")/.."
# The most instructions per stereo frame, for music in calls of 1024 frames.
limits="
aarch64 420
armv7 1230"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# The plug-in runs inside the emulator, so this machine's compiler builds it.
c++ -std=c++20 -O2 -fPIC -shared -fvisibility=hidden -I. -o "$work/plugin.so" bench/count_instructions.cpp

# build PRESET TARGET...
build() {
    cmake --preset "$1" -DORVANE_BENCH=ON >/dev/null
    preset=$1
    shift
    cmake --build "build/$preset" --target "$@" >/dev/null
}
# count PRESET FRAMES [SUFFIX of the program]: prints "instructions a frame | ratio of the slowest call
# to the mean".
count() {
    program=build/$1/bench/chain_load${3:-}
    case $1 in
        release) set -- "$2" '' qemu-x86_64 -cpu max ;;
        aarch64) set -- "$2" aarch64-linux-gnu- qemu-aarch64 ;;
        armv7) set -- "$2" arm-linux-gnueabi- qemu-arm ;;
    esac
    frames=$1
    "$2nm" -nC "$program" >"$work/symbols"
    shift 2
    "$@" -plugin "$work/plugin.so,symbols=$work/symbols" -d plugin -D "$work/counts" \
        "$program" "$frames" music 2>/dev/null
    awk -F'\t' -v size="$frames" '
        $1 == "calls" { calls = $2 }
        $1 == "worst" { worst = $2 }
        $1 == "count" { total += $3 }
        END { printf "%.0f | %.1f\n", total / calls / size, worst * calls / total }' "$work/counts"
}

build aarch64 chain_load
build armv7 chain_load
if [ "${1:-}" = --limits ]; then
    for preset in aarch64 armv7; do echo "$preset $(count $preset 1024)"; done |
        awk -v limits="$limits" '
            BEGIN { words = split(limits, word)
                    for (i = 1; i < words; i += 2) most[word[i]] = word[i + 1] }
            { print $1 ": " $2 " instructions a frame, at most " most[$1] }
            !($2 > 0 && $2 <= most[$1]) { exceeded = 1 }
            { delete most[$1] }
            END { for (name in most) exceeded = 1; exit exceeded }'
    exit
fi

build release chain_load chain_load_avx2 instance_memory
row() {
    printf '| %s frames a call | %s | %s | %s | %s |\n' "$1" "$(count release "$1")" \
        "$(count release "$1" _avx2)" "$(count aarch64 "$1")" "$(count armv7 "$1")"
}

scripts/fill_in.py --part docs/performance.md <<REGIONS
generated: desktop-instructions
| music, everything on | x86-64: instructions a frame | slowest call, of the mean | with AVX2 | slowest call | aarch64 | slowest call | ARMv7 | slowest call |
|---|---:|---:|---:|---:|---:|---:|---:|---:|
$(for frames in 256 1024 4096; do row "$frames"; done)

On x86-64 an instance takes $(($(build/release/bench/instance_memory 2>/dev/null) / 1024)) KiB.
end generated
REGIONS
