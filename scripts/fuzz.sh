#!/bin/sh
# Builds the fuzz targets, replays their corpus and fuzzes on from it.
#
# usage: scripts/fuzz.sh SECONDS [coverage]
#
# SECONDS: per target; 0 replays the corpus only. New inputs are collected in
# build/fuzz/found/TARGET, finds are left in build/fuzz/finds. `coverage` also prints the line
# coverage of host/ and unit/ by everything collected. Exits with 1 on a find.
set -eu
cd "$(dirname "$0")/.."
seconds=$1
cmake --preset fuzz > /dev/null
cmake --build --preset fuzz
mkdir -p build/fuzz/finds
for target in fuzz_host fuzz_classes; do
    binary=build/fuzz/fuzz/$target
    found=build/fuzz/found/$target
    log=build/fuzz/$target.log
    mkdir -p "$found"
    if ! "$binary" -runs=0 -artifact_prefix=build/fuzz/finds/ "fuzz/corpus/$target" > "$log" 2>&1; then
        cat "$log"
        echo "$target: an input of the corpus fails"
        exit 1
    fi
    if [ "$seconds" -gt 0 ] &&
        ! "$binary" -max_total_time="$seconds" -max_len=1024 -print_final_stats=1 \
            -artifact_prefix=build/fuzz/finds/ "$found" "fuzz/corpus/$target" > "$log" 2>&1; then
        tail -60 "$log"
        echo "$target: a find, see build/fuzz/finds"
        exit 1
    fi
    inputs=$(find "fuzz/corpus/$target" -type f | wc -l)
    executions=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
    echo "$target: $inputs inputs replayed, ${executions:-no other} executions, no find"
done
[ "${2:-}" = coverage ] || exit 0

cmake --preset fuzz -B build/fuzz-coverage -DORVANE_SANITIZE=fuzzer-no-link \
    -DCMAKE_CXX_FLAGS="-fprofile-instr-generate -fcoverage-mapping" > /dev/null
cmake --build build/fuzz-coverage --target fuzz_host fuzz_classes
cd build/fuzz-coverage
for target in fuzz_host fuzz_classes; do
    LLVM_PROFILE_FILE=$target.profraw fuzz/$target -runs=0 \
        "../../fuzz/corpus/$target" "../fuzz/found/$target" > /dev/null 2>&1
done
llvm-profdata-14 merge -o fuzz.profdata fuzz_host.profraw fuzz_classes.profraw
llvm-cov-14 report fuzz/fuzz_host -object fuzz/fuzz_classes -instr-profile=fuzz.profdata \
    ../../host ../../unit ../../effects ../../dsp 2>/dev/null |
    awk '$1 ~ /\.|TOTAL/ { printf "%-32s %5d lines, %4d missed, %7s\n", $1, $8, $9, $10 }'
