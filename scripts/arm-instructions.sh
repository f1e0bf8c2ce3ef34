#!/bin/sh
# Counts the instructions that the chain executes on the device. Fills in docs/performance.md (music,
# by stage and combination of stages) and docs/real-time.md (the worst input and settings).
#
# Fails if a count exceeds the limits below. Also fails if an instruction loads or stores two words at
# an address that is no multiple of 8, which the processor does not allow.
#
# usage: arm-instructions.sh [--check]    --check: change nothing; also fail if a document differs
set -eu
# The most instructions per stereo frame: first the mean over calls of 1024 frames, then the slowest
# call of 256 and of 1024 frames. The last limit holds for a reset, a disable, an enable and a change of
# mode together, as a part of a call of 1024 frames.
limits="
music 4900
noise 5250
silence 1000
decay 4000
dearest-256 12900
dearest-1024 7900
commands 0.02"
cd "$(dirname "$0")/.."
build=build/arm-softfloat
program=$build/bench/chain_load
plugin=$build/count_instructions.so
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --preset arm-softfloat -DORVANE_BENCH=ON >/dev/null
cmake --build "$build" --target chain_load >/dev/null
# The plug-in runs inside the emulator, so this machine's compiler builds it.
c++ -std=c++20 -O2 -fPIC -shared -fvisibility=hidden -I. -o "$plugin" bench/count_instructions.cpp
arm-linux-gnueabi-nm -nC "$program" >"$work/symbols"

# count FRAMES LOAD [STAGES], the arguments of chain_load: writes the counts to FRAMES.LOAD[STAGES].
# If `entry` is set, counts the calls of that function instead of process.
count() {
    qemu-arm -plugin "$plugin,symbols=$work/symbols${entry:+,entry=$entry}" -d plugin \
        -D "$work/$1.$2${3:-}" "$program" "$@" 2>/dev/null
    ! grep '^misaligned' "$work/$1.$2${3:-}" >&2
}
for frames in 256 1024 4096; do count "$frames" music; done

# Instructions per frame, by stage.
awk -F'\t' '
    BEGIN { columns = split("256 1024 4096", sizes, " ")
            label["unit"] = "unit: lock, copies"
            label["output"] = "output gain, limiters" }
    FNR == 1 { ++file }
    $1 == "calls" { frames[file] = $2 * sizes[file] }
    $1 == "worst" { worst[file] = $2 / sizes[file] }
    $1 == "stage" && file == 1 { order[++stages] = $2 }
    $1 == "count" { count[$2, file] += $3; total[file] += $3 }
    function row(name, values,    i, text) {
        text = "| " name " |"
        for (i = 1; i <= columns; ++i) text = text sprintf(" %.0f |", values[i])
        print text
    }
    END {
        print "| instructions a stereo frame | 256 frames a call | 1024 | 4096 |"
        print "|---|---:|---:|---:|"
        for (s = 1; s <= stages; ++s) {
            for (i = 1; i <= columns; ++i) value[i] = count[order[s], i] / frames[i]
            row(order[s] in label ? label[order[s]] : order[s], value)
        }
        for (i = 1; i <= columns; ++i) value[i] = total[i] / frames[i]
        row("**whole chain**", value)
        row("whole chain, worst call", worst)
        for (i = 1; i <= columns; ++i) value[i] = total[i] / frames[i] * 44100 / 1000000
        row("millions a second at 44100 Hz", value)
    }' "$work/256.music" "$work/1024.music" "$work/4096.music" >"$work/stages"

# Instructions by kind of code, for calls of 1024 frames. Names without a class are helpers of the
# compiler and the C library.
awk -F'\t' '
    $1 == "calls" { frames = $2 * 1024 }
    $1 == "count" {
        total += $3
        name = $4
        kind = name ~ /[:(]|^Soft/ ? "the library\047s own code" : "helpers"
        if (name ~ /add|sub/ && name ~ /^__aeabi_[fd]/) kind = "additions and subtractions"
        else if (name ~ /mul/ && name ~ /^__aeabi_[fd]/) kind = "multiplications"
        else if (name ~ /cmp[sd]f2|__aeabi_c?[fd]r?cmp/) kind = "comparisons"
        else if (kind == "helpers") kind = "other helpers: conversions, divisions, copies"
        kinds[kind] += $3
    }
    END {
        for (kind in kinds)
            printf "%d\t| %s | %.0f | %.1f %% |\n", kinds[kind], kind, kinds[kind] / frames,
                100 * kinds[kind] / total >kinds_file
    }' kinds_file="$work/kinds" "$work/1024.music"

qemu-arm "$program" stages >"$work/combinations"
# The processor's clock rate that each combination needs. A call must end before the next buffer is
# due, so the slowest call counts too.
while IFS=: read -r stages name; do
    for frames in 256 1024; do count "$frames" music "$stages"; done
    awk -F'\t' -v name="$name" '
        function clock(instructions) {  # a frame
            return sprintf(" %.0f | %.0f |", instructions * 44100 / 1e6,
                           1.4 * instructions * 44100 / 1e6)
        }
        FNR == 1 { size = ++file == 1 ? 256 : 1024 }
        $1 == "calls" { frames = $2 * size }
        $1 == "worst" { dearest[file] = $2 / size }
        $1 == "count" && file == 2 { total += $3 }
        END {
            printf "| %s | %.0f |%s%s%s\n", name, total / frames, clock(total / frames),
                clock(dearest[2]), clock(dearest[1])
        }' "$work/256.music$stages" "$work/1024.music$stages"
done <"$work/combinations" >"$work/clocks"

while IFS=: read -r load name; do
    count 1024 "$load"
    awk -F'\t' -v name="$name" -v noise="${noise:-0}" '
        $1 == "calls" { frames = $2 * 1024 }
        $1 == "count" { total += $3 }
        END { printf "| %s | %.0f | %.2f |\n", name, total / frames, total / (noise ? noise : total)
              printf "%.0f", total >total_file }' total_file="$work/total" "$work/1024.$load"
    : "${noise:=$(cat "$work/total")}"
done >"$work/worst" <<END
noise:noise
silence:silence
decay:silence after a buffer of noise: decay into denormals
least:noise, every parameter the least int32
largest:noise, every parameter the largest int32
END

# Print all instructions in a file, and those of its slowest call.
total() { awk -F'\t' '$1 == "count" { total += $3 } END { printf "%.0f", total }' "$work/$1"; }
dearest() { awk -F'\t' '$1 == "worst" { print $2 }' "$work/$1"; }
calls=$(awk -F'\t' '$1 == "calls" { print $2 }' "$work/1024.noise")
process=$(total 1024.noise)
entry=InterfaceCommand
count 1024 noise
none=$(total 1024.noise)
count 1024 commands
commands=$(total 1024.commands)
frames=$((calls * 1024))
{
    echo "commands $((commands - none)) $process"
    echo "noise $process $frames"
    for load in music silence decay; do echo "$load $(total 1024.$load) $frames"; done
    for size in 256 1024; do echo "dearest-$size $(dearest $size.music) $size"; done
} | awk -v limits="$limits" '
    BEGIN { words = split(limits, word); for (i = 1; i < words; i += 2) most[word[i]] = word[i + 1] }
    !($2 / $3 <= most[$1]) {
        printf "arm-instructions: %s: %.4g, at most %s\n", $1, $2 / $3, most[$1] | "cat >&2"
        exceeded = 1
    }
    { delete most[$1] }
    END { for (name in most) exceeded = 1; exit exceeded }' || limits=exceeded

scripts/fill_in.py --part "$@" docs/performance.md docs/real-time.md <<REGIONS
generated: clock-table
| on, with the output limiters | instructions a frame | mean, MHz at 1 | at 1.4 | dearest call of 1024, at 1 | at 1.4 | dearest call of 256, at 1 | at 1.4 |
|---|---:|---:|---:|---:|---:|---:|---:|
$(cat "$work/clocks")
end generated
generated: instruction-tables
$(cat "$work/stages")

| code, calls of 1024 frames | instructions a frame | share |
|---|---:|---:|
$(sort -rn "$work/kinds" | cut -f2-)
end generated
generated: worst-cases
| process on the device, calls of 1024 frames | instructions a frame | of noise |
|---|---:|---:|
$(cat "$work/worst")
end generated
REGIONS
[ "$limits" != exceeded ]
