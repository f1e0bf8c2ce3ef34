#!/bin/sh
# Builds the fuzz targets, replays their corpus and continues fuzzing from it. Exits with 1 on a find.
#
# usage: scripts/fuzz.sh SECONDS [coverage|keep|empty] [TARGET...]
#
#   SECONDS   the time for each target; two run at the same time. 0 only replays the corpus.
#   keep      Packs a new corpus into fuzz/corpus.txt: a minimal set of inputs that reaches every edge of
#             the code that the corpus and the new inputs reach.
#   coverage  Prints the line coverage of the corpus and the new inputs.
#   empty     The same, but begins without any stored input, and with no earlier new inputs.
#   TARGET    the targets to run, such as fuzz_host. Without this, all of them.
#
# The corpus is unpacked from fuzz/corpus.txt into build/fuzz/corpus/TARGET. New inputs are collected in
# build/fuzz/found/TARGET, and finds are left in build/fuzz/finds.
set -eu
cd "$(dirname "$0")/.."
seconds=$1
mode=${2:-}
shift $(($# < 2 ? $# : 2))
targets=${*:-fuzz_host fuzz_reader fuzz_classes fuzz_tags fuzz_live fuzz_settings}
cmake --preset fuzz > /dev/null
# shellcheck disable=SC2086 # a list of names
cmake --build --preset fuzz --target $targets
cd build/fuzz
rm -rf corpus
mkdir -p finds
for target in $targets; do
    mkdir -p "corpus/$target" "found/$target"
    if [ "$mode" = empty ]; then
        rm -rf "found/$target"
        mkdir "found/$target"
        continue
    fi
    ../../scripts/fuzz_corpus.py unpack "$target" "corpus/$target"
done

# Replays and fuzzes one target.
run() {
    target=$1
    binary=fuzz/$target
    log=$target.log
    case $target in
        fuzz_reader | fuzz_tags) most=8192 ;; # the smallest files of some formats have 3000 bytes
        *) most=1024 ;;
    esac
    inputs=$(find "corpus/$target" -type f | wc -l)
    if ! "$binary" -runs=0 -artifact_prefix=finds/ "corpus/$target" > "$log" 2>&1; then
        cat "$log"
        echo "$target: an input of the corpus fails"
        exit 1
    fi
    if [ "$seconds" -gt 0 ] &&
        ! "$binary" -max_total_time="$seconds" -max_len=$most -timeout=300 -print_final_stats=1 \
            -artifact_prefix=finds/ "found/$target" "corpus/$target" > "$log" 2>&1; then
        tail -60 "$log"
        echo "$target: a find, see build/fuzz/finds"
        exit 1
    fi
    executions=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
    echo "$target: $inputs inputs replayed, ${executions:-no other} executions, no find"
}
# Runs every second target.
run_half() {
    while [ $# -gt 0 ]; do
        run "$1"
        shift $(($# < 2 ? 1 : 2))
    done
}
# shellcheck disable=SC2086
set -- $targets
(run_half "$@") &
status=0
shift
(run_half "$@") || status=1
wait $! || status=1
[ "$status" -eq 0 ] || exit 1

for target in $([ "$mode" != keep ] || echo "$targets"); do
    rm -rf kept
    mkdir kept
    "fuzz/$target" -merge=1 -use_counters=0 kept "corpus/$target" "found/$target" > "$target.log" 2>&1
    ../../scripts/fuzz_corpus.py pack "$target" kept
done
cd ../..
[ "$mode" = coverage ] || [ "$mode" = empty ] || exit 0

cmake --preset fuzz -B build/fuzz-coverage -DORVANE_SANITIZE=fuzzer-no-link \
    -DCMAKE_CXX_FLAGS="-ffp-exception-behavior=strict -fprofile-instr-generate -fcoverage-mapping" \
    > /dev/null
# shellcheck disable=SC2086
cmake --build build/fuzz-coverage --target $targets
cd build/fuzz-coverage
rm -f ./*.profraw
set --
for target in $targets; do
    LLVM_PROFILE_FILE=$target.profraw "fuzz/$target" -runs=0 \
        "../fuzz/corpus/$target" "../fuzz/found/$target" > /dev/null 2>&1
    set -- "$@" ${1:+-object} "fuzz/$target"
done
llvm-profdata-14 merge -o fuzz.profdata ./*.profraw
# The lines of each file, and of all files of a part together.
llvm-cov-14 report "$@" -instr-profile=fuzz.profdata 2> /dev/null |
    awk '
        BEGIN {
            reading = "(audio_reader|pcm|bytes|source_scan|stream_scan|pipe_copy|tags|tag_stream|marks|marks_file)"
        }
        function show(name, lines, missed) {
            printf "%-34s %5d lines, %4d missed, %6.2f %%\n", name, lines, missed, 100 - 100 * missed / lines
        }
        $1 ~ /^(host|unit|live)\// { part = substr($1, 1, index($1, "/") - 1) }
        $1 ~ /^(effects|dsp)\// { part = "effects and dsp" }
        $1 ~ "^render/audio/" reading "[.]" { part = "reading audio files" }
        $1 ~ /^client\/(settings_|tone_file)/ { part = "reading settings" }
        part != "" && NF > 10 {
            show($1, $8, $9)
            lines[part] += $8
            missed[part] += $9
        }
        { part = "" }
        END { for (name in lines) show(name ", together", lines[name], missed[name]) }'
