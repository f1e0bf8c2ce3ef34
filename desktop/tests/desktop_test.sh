#!/bin/sh
# Starts a desktop without a screen: a sound server, a loudspeaker that nobody hears and a session
# manager. Installs what was built and does what docs/desktop.md says.
#   desktop_test.sh BUILD_FOLDER
set -eu
if [ "${2:-}" != inside ]; then
  for program in pipewire wireplumber pw-cat wpctl dbus-run-session; do
    command -v $program >/dev/null || { echo "skipped: no $program"; exit 0; }
  done
  here=$(mktemp -d)
  trap 'rm -rf "$here"' EXIT
  cmake --install "$1" --prefix "$here/prefix" >/dev/null
  mkdir -m 700 "$here/run"
  mkdir -p "$here/config/pipewire/pipewire.conf.d"
  cat >"$here/config/pipewire/pipewire.conf.d/speakers.conf" <<'END'
context.objects = [ { factory = adapter args = {
  factory.name = support.null-audio-sink node.name = speakers node.description = Speakers
  media.class = Audio/Sink audio.position = [ FL FR ] monitor.channel-volumes = false
  object.linger = true } } ]
END
  env -u DBUS_SESSION_BUS_ADDRESS HOME="$here" XDG_RUNTIME_DIR="$here/run" \
    XDG_CONFIG_HOME="$here/config" XDG_STATE_HOME="$here/state" \
    LV2_PATH="$here/prefix/lib/lv2" PATH="$here/prefix/bin:$PATH" \
    dbus-run-session -- "$0" "$1" inside
  exit
fi

cd "$HOME"
server= manager=
trap 'orvane-desktop off >/dev/null 2>&1 || :; kill $manager $server 2>/dev/null || :' EXIT
fail() { echo "$*" >&2; exit 1; }
within() { for _ in $(seq 60); do ! "$@" >/dev/null 2>&1 || return 0; sleep 0.1; done; fail "not within 6 s: $*"; }
gone() { ! pw-cli info orvane | grep -q id:; }
default_is() { wpctl inspect @DEFAULT_AUDIO_SINK@ | grep -q "node.name = \"$1\""; }
alive() { kill -0 $server && default_is speakers; }
pipewire >server.log 2>&1 &
server=$!
within pw-cli info 0
wireplumber >manager.log 2>&1 &
manager=$!
within default_is speakers

sed "s:/usr/bin:$HOME/prefix/bin:" "$HOME"/prefix/lib/systemd/user/orvane-desktop.service >orvane-desktop.service
systemd-analyze --user verify ./orvane-desktop.service

# Only the equalizer and the output gain are set. Their samples don't depend on when the chain started.
cat >settings <<'END'
eq = -0.2,1,0.8,0.05,-0.05,-0.15,0,-0.1,0.05,-0.05
output-gain = -6dB
END
ffmpeg -v error -f lavfi -i "anoisesrc=r=48000:d=2:a=0.4:seed=1,aeval='val(0)|val(0)*sin(9*t)',apad=pad_dur=0.3" -c:a pcm_s16le in.wav
recorded() { pw-link -l | grep -q pw-record; }
hear() {  # records the loudspeaker into $1 while the rest of the line runs
  pw-record --target speakers -P '{ stream.capture.sink = true }' --rate 48000 --channels 2 \
    --format f32 "$1" &
  recorder=$!
  within recorded
  shift
  "$@"
  sleep 0.7
  kill -INT $recorder
  wait $recorder || :
}
play() { pw-cat -p in.wav; }
pcm() { ffmpeg -v error -i "$1" -f s16le -; }

orvane-desktop on settings
default_is orvane || fail "everything plays elsewhere"
orvane-desktop status | grep -q '^on, everything.*'
frames() { pcm "$1" | od -An -v -tx1 -w4 | tr -d ' ' | sed '/^00000000$/d'; }  # that sound
orvane render in.wav wanted.wav -q --preset settings --cold-start --keep-delay --no-dither
frames wanted.wav >wanted.frames
# A busy machine drops some buffers. All others must hold the renderer's samples.
for turn in 1 2 3 4 5; do
  hear out.wav play
  frames out.wav >heard.frames
  missing=$(diff --speed-large-files wanted.frames heard.frames | grep -c '^<') || break  # none
  [ "$missing" -gt 30000 ] || break
  [ $turn -lt 5 ] || fail "$missing frames of $(wc -l <wanted.frames) aren't heard"
done

# A setting that changes during playback must be heard in the recording.
turn() {
  play
  play &
  player=$!
  orvane-desktop set output-gain -20dB
  wait $player
  play
}
hear turned.wav turn
level() { ffmpeg -v info -f s16le -ac 2 -i - -af volumedetect -f null - 2>&1 | sed -n 's/.*mean_volume: \(.*\) dB/\1/p'; }
orvane-desktop status | grep -q 'output-gain 0.1 '
pcm turned.wav >turned.pcm
before=$(head -c 480000 turned.pcm | level)
after=$(tail -c 480000 turned.pcm | level)
awk "BEGIN { exit !($before - $after > 8) }" || fail "no change is heard: $before, $after dB"
orvane-desktop set ratio 11 2>/dev/null && fail "11 is outside the range"

# If the client's process dies, the sound must go on without it.
kill -KILL "$(cat run/orvane-desktop.pid)"
within gone
within alive
orvane-desktop on night
default_is orvane
orvane-desktop status | grep -q 'ratio 3'
orvane-desktop off
within alive
# Without the plug-in, nothing may happen except a message.
LV2_PATH="$HOME" orvane-desktop on 2>message && fail "it plays without its plug-in"
grep -q "doesn't appear" message
alive
