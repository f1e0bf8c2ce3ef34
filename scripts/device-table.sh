#!/bin/sh
# Builds the library for the device and fills in the table of docs/device.md with its memory and
# linkage. The heap is measured in the emulated build, which has a program for that. Fails if text or
# heap take more bytes than the limits below.
#
# usage: device-table.sh [--check]    --check: change nothing; also fail if the document differs
set -eu
most_text=106496
most_heap=230400
cd "$(dirname "$0")/.."
build=build/arm-softfloat
file=$build/android/device/libqth_orvane_ics_NOVFP.so # without the symbols that are asked for below
library=$build/android/device/with_symbols.so
prefix=arm-linux-gnueabi-

cmake --preset arm-softfloat -DORVANE_BENCH=ON >/dev/null
cmake --build "$build" --target qth_orvane_device qth_orvane instance_memory >/dev/null

# The sizes of text (read-only), data (writable) and bss (zeroed).
sizes=$("${prefix}size" "$library" | tail -n 1)
size_of() { echo "$sizes" | awk -v n="$1" '{ print $n }'; }
in_backticks() { sed 's/.*/`&`/' | paste -sd, - | sed 's/,/, /g'; }

relocated=$("${prefix}readelf" -lW "$library" | awk '$1 == "GNU_RELRO" { print $6 }')
writable=$("${prefix}objdump" -t "$library" |
    awk '/ O \.(data|bss)\t/ { print $NF }' | sort | in_backticks)
needed=$("${prefix}readelf" -dW "$library" |
    sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | sort | in_backticks)
# Weak symbols are left out. Only start-up code uses them, and they may be missing.
undefined=$("${prefix}nm" -D -u "$library" |
    awk '$1 == "U" { sub(/@.*/, "", $2); print $2 }' | sort | in_backticks)
exported=$("${prefix}nm" -D --defined-only "$library" | wc -l)
heap=$(qemu-arm -L /usr/arm-linux-gnueabi "$build/bench/instance_memory" 2>/dev/null)

# How much of the text each stage takes, by the linker's map. A source of effects/ that the first lines
# of `owner` don't name becomes a row of its own.
stages=$(awk '
    function decimal(hex,    n, i) {
        for (i = 3; i <= length(hex); ++i) n = 16 * n + index("0123456789abcdef", substr(hex, i, 1)) - 1
        return n
    }
    function owner(path) {
        if (path ~ /playback_gain|loudness|biquad_fp/) return "playback gain"
        if (path ~ /equalizer|average/) return "equalizer"
        if (path ~ /limiter|steady_gains/) return "limiters"
        if (path ~ /effects\/orvane_sound/) return "enhancer"
        if (path ~ /\/effects\//) { gsub(/.*\/|\.cpp.*/, "", path); return path }
        if (path ~ /\/dsp\//) return path ~ /samples/ ? "conversions" : "enhancer"
        return path ~ /\/(unit|host|platform)\// ? "unit, host, platform" : "helpers of the compiler"
    }
    /^Linker script and memory map/ { inside = 1 }
    inside && $1 ~ /^\.(text|rodata)./ && NF == 1 { getline }
    inside && /^ / && NF >= 3 && $NF ~ /\.(o|a\(.*\)|o\))$/ && $(NF - 1) ~ /^0x/ &&
        ($1 ~ /^\.(text|rodata)/ || NF == 3) { bytes[owner($NF)] += decimal($(NF - 1)) }
    END {
        for (name in bytes) rest -= bytes[name]
        bytes["names and relocations for the loader"] = rest
        for (name in bytes)
            printf "%d\t| &nbsp;&nbsp;of that %s | %d bytes |\n", bytes[name], name, bytes[name]
    }' rest="$(size_of 1)" "$build/android/device/device.map" | sort -rn | cut -f2-)

scripts/fill_in.py "$@" docs/device.md <<TABLE
generated: device-table
| What | How much |
|---|---|
| text: code and constants | $(size_of 1) bytes |
$stages
| data: tables of addresses, written by the loader | $(size_of 2) bytes |
| &nbsp;&nbsp;of that read-only once loaded | $((relocated)) bytes |
| bss: zeroed data | $(size_of 3) bytes |
| objects that stay writable | ${writable:-none} |
| heap of one instance, 44100 Hz, stereo, everything on | $heap bytes |
| size of the file | $(stat -c %s "$file") bytes |
| shared libraries | $needed |
| functions of them | $undefined |
| exported symbols | $exported |
end generated
TABLE

exceeded=0
limit() {
    [ "$2" -le "$3" ] && return
    echo "device-table: $1: $2 bytes, at most $3" >&2
    exceeded=1
}
limit text "$(size_of 1)" "$most_text"
limit heap "$heap" "$most_heap"
exit "$exceeded"
