#!/bin/bash
# Compares the renderer's user time with that of other programs' chains that do comparable work. All
# process the same file: three minutes of pink noise, stereo, 44100 Hz, 16 bits. Takes the medians of
# five runs in turns and fills only their ratios into docs/performance.md. Needs ffmpeg and sox.
# Then compares the renderer with its report to itself without one, by the least of the five runs.
# The elapsed time says something only if two cores are idle.
#
# usage: bench/peers.sh [PROGRAM]    by default build/release/orvane
set -euo pipefail
cd "$(dirname "$0")/.."
orvane=$(realpath "${1:-build/release/orvane}")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

sox -R -n -r 44100 -c 2 -b 16 "$work/in.wav" synth 180 pinknoise vol 0.35
chain=dynaudnorm,superequalizer=1b=1.2:2b=1.4:5b=0.8,bass=g=4,crystalizer,alimiter
meter=ebur128=peak=true:framelog=verbose
declare -A run=(
  [ffmpeg]="ffmpeg -y -loglevel error -i in.wav -af $chain ffmpeg.wav"
  [metered]="ffmpeg -y -loglevel error -i in.wav -af $meter,$chain,$meter metered.wav"
  [sox]="sox in.wav sox.wav compand 0.3,1 6:-70,-60,-20 -5 -90 0.2 equalizer 60 1q 2 equalizer 250 1q -2 equalizer 1000 1q 1 equalizer 4000 1q 2 bass 4 treble 2 gain -l 2"
  [everything]="$orvane render -fq in.wav everything.wav --preset off --playback-gain --max-gain 4 --eq 0.2,0.4,-0.15,0,0.1,-0.2,0.05,0.15,-0.05,0.3 --enhancer --process 1.8 --lo-contour 0.2 --output-gain 1.4 --gate 0.8"
  [default]="$orvane render -fq in.wav default.wav"
  [report]="$orvane render -f in.wav report.wav"
)
TIMEFORMAT='%U %S %R'
for turn in 1 2 3 4 5; do
  for name in "${!run[@]}"; do
    { time (cd "$work" && eval "${run[$name]}" >/dev/null 2>"$name.err") ; } 2>>"$work/$name.times"
  done
done
median() { sort -n "$work/$1.times" | awk 'NR == 3 { print $1 }'; }
# least NAME EXPRESSION: of the columns $1 (user), $2 (system) and $3 (elapsed time)
least() { awk "{ print $2 }" "$work/$1.times" | sort -n | head -1; }
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", a / b }'; }
row() {
  awk -v name="$2" -v time="$(median "$1")" -v ffmpeg="$(median ffmpeg)" -v sox="$(median sox)" \
    'BEGIN { printf "| %s | %.2f | %.2f |\n", name, time / ffmpeg, time / sox }'
}

scripts/fill_in.py --part docs/performance.md <<REGIONS
generated: peers
| user time, file to file | of ffmpeg's | of sox's |
|---|---:|---:|
$(row everything 'every stage on')
$(row default 'the preset that the program starts from')
| the same with its report; ffmpeg with its meter before and after | $(ratio "$(median report)" "$(median metered)") | |
end generated
generated: report-cost
The report takes $(ratio "$(least report '$1 + $2')" "$(least default '$1 + $2')") times the processor time of \`-q\` and $(ratio "$(least report '$3')" "$(least default '$3')") times its elapsed time.
end generated
REGIONS
