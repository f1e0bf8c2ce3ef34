#!/bin/sh
# Tests the plug-in in programs that people use. Its files must be valid, ffmpeg and lv2apply must
# give the renderer's samples, and jalv must list every control.
#   hosts_test.sh BUILD_FOLDER
set -eu
build=$(realpath "$1")
here=$(mktemp -d)
jack=
trap '[ -z "$jack" ] || kill "$jack"; rm -rf "$here"' EXIT
mkdir "$here/lv2"
ln -s "$build/orvane.lv2" "$here/lv2/orvane.lv2"
export LV2_PATH="$here/lv2:/usr/lib/lv2"
uri=urn:quenthra:orvane

lv2_validate "$build"/orvane.lv2/*.ttl >"$here/validate" 2>&1 || { cat "$here/validate"; exit 1; }
grep -q "Found 0 errors" "$here/validate"
# GStreamer takes each port with a group for a channel of audio.
[ "$(grep -c pg:group "$build/orvane.lv2/orvane.ttl")" = 4 ]
nm -D --defined-only "$build/orvane.lv2/orvane.so" | grep -v ' lv2_descriptor$' | (! grep .)

# Prints "symbol value" for each control of the preset $1, one a line.
values() {
  sed -n "/^<$uri#$1>/,/ \\.\$/ s/.*lv2:symbol \"\\([a-z_0-9]*\\)\" ; pset:value \\([-0-9.e]*\\) .*/\\1 \\2/p" \
    "$build/orvane.lv2/presets.ttl"
}
pcm() { ffmpeg -v error -i "$1" -f s16le - | tail -c +$(($2 * 4 + 1)); }
# Checks that $1, from its frame $2 on, holds the renderer's samples.
compare() {
  pcm "$1" "$2" >"$here/heard"
  [ "$(wc -c <"$here/heard")" -gt 200000 ]
  pcm "$here/rendered.wav" 0 >"$here/wanted"
  cmp -n "$(wc -c <"$here/heard")" "$here/wanted" "$here/heard"
}
for rate in 44100 48000; do
  ffmpeg -v error -y -f lavfi -i "anoisesrc=r=$rate:d=2:a=0.4:seed=1,aeval='val(0)|val(0)*sin(9*t)'" \
    -c:a pcm_s16le "$here/in.wav"
  ffmpeg -v error -y -i "$here/in.wav" -c:a pcm_f32le "$here/float.wav"
  for preset in night loud; do
    for buffer in 1024 770; do
      low=$((buffer == 770))
      "$build/orvane" render "$here/in.wav" "$here/rendered.wav" -q -f --preset $preset \
        --cold-start --keep-delay --no-dither --buffer $buffer
      settings="c=low_latency=$low$(values $preset | sed 's/\(.*\) /|\1=/' | tr -d '\n')"
      ffmpeg -v error -y -i "$here/float.wav" -c:a pcm_f32le \
        -af "lv2=p=urn\\\\:quenthra\\\\:orvane:$settings" "$here/out.wav"
      compare "$here/out.wav" $buffer
      # shellcheck disable=SC2046  # words
      lv2apply -i "$here/float.wav" -o "$here/out.wav" -c low_latency $low \
        $(values $preset | sed 's/^/-c /') $uri >/dev/null
      compare "$here/out.wav" $buffer
    done
  done
done

export JACK_DEFAULT_SERVER="orvane$$" JACK_NO_AUDIO_RESERVATION=1
jackd --no-realtime -d dummy -r 48000 >"$here/jackd" 2>&1 &
jack=$!
for _ in 1 2 3 4 5 6 7 8 9; do  # until the server is there
  sleep 0.5
  (sleep 1; echo controls; sleep 0.5) | timeout 10 jalv $uri >"$here/jalv" 2>&1 && break
done
values off | while read -r symbol _; do
  grep -q "$symbol = " "$here/jalv" || { echo "jalv lists no $symbol"; cat "$here/jalv"; exit 1; }
done
