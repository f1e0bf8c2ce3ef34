#!/bin/sh
# Builds the fuzz targets, replays their corpus and continues fuzzing from it. Exits with 1 on a find.
#
# usage: scripts/fuzz.sh SECONDS [coverage|keep]
#
#   SECONDS   the time for each target; both run at the same time. 0 only replays the corpus.
#   keep      Packs a new corpus into fuzz/corpus: a minimal set of inputs that reaches every edge of
#             the code that the corpus and the new inputs reach.
#   coverage  Prints the line coverage of the corpus and the new inputs.
#
# The corpus is unpacked from fuzz/corpus into build/fuzz/corpus/TARGET. New inputs are collected in
# build/fuzz/found/TARGET, and finds are left in build/fuzz/finds.
set -eu
cd "$(dirname "$0")/.."
seconds=$1
cmake --preset fuzz > /dev/null
cmake --build --preset fuzz
cd build/fuzz
rm -rf corpus first
mkdir -p finds first/fuzz_classes
../../fuzz/corpus.py runs ../../tests/data/runs first/fuzz_host

# Replays and fuzzes one target.
run() {
    target=$1
    binary=fuzz/$target
    log=$target.log
    mkdir -p "found/$target"
    ../../fuzz/corpus.py unpack "../../fuzz/corpus/$target.txt" "corpus/$target"
    # The first inputs are made from the recorded runs each time, so they aren't packed.
    find "first/$target" -type f -exec cp {} "corpus/$target" \;
    inputs=$(find "corpus/$target" -type f | wc -l)
    if ! "$binary" -runs=0 -artifact_prefix=finds/ "corpus/$target" > "$log" 2>&1; then
        cat "$log"
        echo "$target: an input of the corpus fails"
        exit 1
    fi
    if [ "$seconds" -gt 0 ] &&
        ! "$binary" -max_total_time="$seconds" -max_len=1024 -print_final_stats=1 \
            -artifact_prefix=finds/ "found/$target" "corpus/$target" > "$log" 2>&1; then
        tail -60 "$log"
        echo "$target: a find, see build/fuzz/finds"
        exit 1
    fi
    executions=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
    echo "$target: $inputs inputs replayed, ${executions:-no other} executions, no find"
}
(run fuzz_classes) &
status=0
(run fuzz_host) || status=1
wait $! || status=1
[ "$status" -eq 0 ] || exit 1

for target in $([ "${2:-}" != keep ] || echo fuzz_host fuzz_classes); do
    rm -rf kept
    cp -r "first/$target" kept
    "fuzz/$target" -merge=1 -use_counters=0 kept "corpus/$target" "found/$target" > "$target.log" 2>&1
    (cd "first/$target" && find . -type f) | (cd kept && xargs rm -f)
    ../../fuzz/corpus.py pack kept "../../fuzz/corpus/$target.txt"
done
cd ../..
[ "${2:-}" = coverage ] || exit 0

cmake --preset fuzz -B build/fuzz-coverage -DORVANE_SANITIZE=fuzzer-no-link \
    -DCMAKE_CXX_FLAGS="-ffp-exception-behavior=strict -fprofile-instr-generate -fcoverage-mapping" \
    > /dev/null
cmake --build build/fuzz-coverage --target fuzz_host fuzz_classes
cd build/fuzz-coverage
for target in fuzz_host fuzz_classes; do
    LLVM_PROFILE_FILE=$target.profraw fuzz/$target -runs=0 \
        "../fuzz/corpus/$target" "../fuzz/found/$target" > /dev/null 2>&1
done
llvm-profdata-14 merge -o fuzz.profdata fuzz_host.profraw fuzz_classes.profraw
llvm-cov-14 report fuzz/fuzz_host -object fuzz/fuzz_classes -instr-profile=fuzz.profdata \
    ../../host ../../unit ../../effects ../../dsp 2>/dev/null |
    awk '$1 ~ /\.|TOTAL/ { printf "%-32s %5d lines, %4d missed, %7s\n", $1, $8, $9, $10 }'
