#!/usr/bin/env python3
"""Measures what every preset does to six kinds of sound, for docs/presets.md.

    preset-table.py ORVANE | fill_in.py [--check] docs/presets.md

ORVANE is the program. Fails, and prints no table, if a preset breaks one of the promises below. They
are the promises of its description. These Debian packages hold the sound: fretsonfire-songs-muldjord,
caveexpress-data, pocketsphinx-testdata, alsa-utils.
"""
import json
import os
import subprocess
import sys
import tempfile
import wave

SONGS = "/usr/share/games/fretsonfire/data/songs/muldjord"
CAVE = "/usr/share/games/caveexpress/sounds"
READINGS = "/usr/share/pocketsphinx/test/data/librivox"
NAMES = "/usr/share/sounds/alsa"
MASTER, LOUDER, QUIET, DENSE, SPEECH = "loud master", "louder master", "quiet music", "dense music", "speech"
WORDS = "single words"
MASTERS, RANGED, REST = (MASTER, LOUDER), (QUIET, DENSE, SPEECH), (QUIET, DENSE, SPEECH, WORDS)
ALL = MASTERS + REST
SOURCES = {
    MASTER: f"{SONGS}/armygeddon/song.ogg",
    LOUDER: f"{SONGS}/internal_degeneration/song.ogg",
    QUIET: f"{CAVE}/music-2.ogg",
    DENSE: f"{CAVE}/music-1.ogg",
}

# For each preset: measure, kinds of sound, least and most. "loudness" is the change in LU, "peak" the
# true peak after in dB, and "range" the loudness range after divided by that before.
PROMISES = {
    "music": [("loudness", (QUIET, DENSE), -1, 1), ("loudness", MASTERS + (SPEECH, WORDS), -2.1, 0)],
    "bass": [("loudness", (QUIET, DENSE), -1, 1), ("loudness", MASTERS + (SPEECH, WORDS), -4, 0)],
    "steady": [("range", RANGED, 0.6, 0.78), ("loudness", REST, 1, 7), ("loudness", MASTERS, -4.2, 0)],
    "night": [("range", RANGED, 0, 0.52), ("peak", ALL, -99, -10)],
    "voice": [("loudness", (SPEECH, WORDS), -1, 4)],
    "loud": [("loudness", REST, 5, 14), ("loudness", MASTERS, -2.5, 0), ("peak", ALL, -99, 0)],
    "off": [("loudness", ALL, -0.1, 0.1)],
}


def join(path, folder, rate):
    """Joins the mono recordings of a folder, except its noise, into one file."""
    with wave.open(path, "wb") as whole:
        whole.setparams((1, 2, rate, 0, "NONE", None))
        for name in sorted(os.listdir(folder)):
            if name.endswith(".wav") and name != "Noise.wav":
                with wave.open(f"{folder}/{name}") as part:
                    whole.writeframes(part.readframes(part.getnframes()))


def measure(orvane, preset, source, output):
    command = [orvane, "render", "-f", "--json", "--preset", preset, source, output]
    report = json.loads(subprocess.run(command, check=True, capture_output=True).stdout)
    return {when: {"loudness": report["loudnessLufs"][when], "range": report["loudnessRangeLu"][when],
                   "peak": report["truePeakDb"][when]} for when in ("before", "after")}


def broken(preset, kind, measured):
    before, after = measured["before"], measured["after"]
    values = {"loudness": after["loudness"] - before["loudness"],
              "range": after["range"] / before["range"], "peak": after["peak"]}
    return [f"{preset}, {kind}: {what} {values[what]:.2f} is outside {least} to {most}"
            for what, kinds, least, most in PROMISES[preset]
            if kind in kinds and not least <= values[what] <= most]


def main():
    orvane = os.path.abspath(sys.argv[1])
    faults, rows = [], []
    with tempfile.TemporaryDirectory() as folder:
        sources = {**SOURCES, SPEECH: f"{folder}/speech.wav", WORDS: f"{folder}/words.wav"}
        join(sources[SPEECH], READINGS, 16000)
        join(sources[WORDS], NAMES, 48000)
        for preset in PROMISES:
            for kind in ALL:
                measured = measure(orvane, preset, sources[kind], f"{folder}/out.wav")
                faults += broken(preset, kind, measured)
                before, after = measured["before"], measured["after"]
                rows.append(f"| {preset} | {kind} | {before['loudness']:.1f} "
                            f"| {round(after['loudness'] - before['loudness'], 1) + 0.0:+.1f} "
                            f"| {before['range']:.1f} → {after['range']:.1f} "
                            f"| {before['peak']:+.1f} → {after['peak']:+.1f} |")
    table = ["| preset | kind | LUFS before | loudness, LU | range, LU | true peak, dB |",
             "|---|---|---|---|---|---|"] + rows
    if faults:
        sys.exit("\n".join(faults))
    print("generated: preset-measures", *table, "end generated", sep="\n")


if __name__ == "__main__":
    main()
