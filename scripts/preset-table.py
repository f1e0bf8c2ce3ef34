#!/usr/bin/env python3
"""Measures what every preset does to music and speech, for docs/presets.md.

    preset-table.py ORVANE | fill_in.py --part [--check] docs/presets.md
    preset-table.py ORVANE --all | fill_in.py docs/presets.md

ORVANE is the program. The first form measures six pieces, whose packages scripts/install-packages.sh
installs. With --all, it measures all of PIECES as well, which takes about ten minutes. These Debian
packages hold them, beside ffmpeg: wesnoth-1.16-music, singularity-music, fretsonfire-songs-muldjord,
fretsonfire-songs-sectoid, frozen-bubble-data, lincity-ng-data, caveexpress-data, asc-music, espeak-ng,
pocketsphinx-testdata, alsa-utils.

The presets were tuned on every other piece of the list, beginning with the first. PROMISES come from
the other half, with up to 1 LU added; in classes with one or two pieces of that half, all pieces count.
Fails, and prints no table, if a piece breaks a promise and OUTSIDE doesn't name it, or if OUTSIDE names a
piece that keeps its promise.
"""
import glob
import json
import os
import subprocess
import sys
import tempfile

GAMES = "/usr/share/games"
CORPUS = "/usr/share/pocketsphinx/test/data"
TEXT = ("The train to the coast leaves at ten past nine from platform four. Passengers with bicycles "
        "board at the rear. We regret that the dining car is closed today. In the afternoon, expect light "
        "rain in the north and a fresh wind from the west. She asked whether the letter had come; nobody "
        "could say. It was late, and the lamps along the quay were being lit, one after another.")
# Folder, ending, names.
MUSIC = (
    (f"{GAMES}/wesnoth/1.16/data/core/music", ".ogg",
     "battle,battle-epic,breaking_the_chains,casualties_of_war,elvish-theme,frantic,heroes_rite,journeys_end,"
     "knalgan_theme,knolls,loyalists,main_menu,northerners,sad,siege_of_laurelmor,suspense,the_city_falls,"
     "the_deep_path,transience,vengeful,wanderer,love_theme,nunc_dimittis,underground"),
    (f"{GAMES}/singularity/music", ".ogg",
     "A New Journey,Aberrations,Awakening,By-Product,Coherence,Enemy Unknown,Nebula,Through Space"),
    (f"{GAMES}/fretsonfire/data/songs", "/song.ogg",
     "muldjord/armygeddon,muldjord/internal_degeneration,muldjord/chaos_god,muldjord/mutilated_mime,"
     "sectoid/Feelings,sectoid/Metal madness,sectoid/War of freedom,sectoid/Escape from chaosland"),
    (f"{GAMES}/frozen-bubble/snd", ".ogg", "frozen-mainzik-1p,frozen-mainzik-2p,introzik"),
    (f"{GAMES}/lincity-ng/music/default", ".ogg",
     "01 - pronobozo - lincity,02 - Robert van Herk - City Blues,"
     "03 - Robert van Herk - Architectural Contemplations"),
    (f"{GAMES}/caveexpress/sounds", ".ogg", "music-1,music-2"),
    (f"{GAMES}/asc/music", ".mp3", "frontiers,machine_wars,time_to_strike"),
)
# Voice and amplitude of espeak-ng.
VOICES = (("en-us", 100), ("en-gb+f3", 60), ("de", 150), ("fr+f2", 100), ("es", 40), ("it+f4", 20),
          ("en-us+m3", 200), ("sv", 10))
# Recordings that are joined, as name and files.
JOINED = (("librivox", f"{CORPUS}/librivox/*.wav"), ("cards", f"{CORPUS}/cards/*.wav"),
          ("names", "/usr/share/sounds/alsa/[!N]*.wav"),  # without Noise.wav
          ("goforward", f"{CORPUS}/goforward.raw"), ("numbers", f"{CORPUS}/numbers.raw"),
          ("something", f"{CORPUS}/something.raw"))
# The pieces of the first form, whole.
SIX = {"loud master": "muldjord/armygeddon", "louder master": "muldjord/internal_degeneration",
       "quiet music": "music-2", "dense music": "music-1", "speech": "librivox", "single words": "names"}

# Loudness before, in LUFS: at least, less than. The first five are of music.
CLASSES = {"music above -11": (-11, 0), "-14 to -11": (-14, -11), "-17 to -14": (-17, -14), "-20 to -17": (-20, -17),
           "-26 to -20": (-26, -20), "speech above -20": (-20, 0), "speech, -26 to -20": (-26, -20),
           "speech, -35 to -26": (-35, -26)}
MUSIC_CLASSES = 5
# The change of loudness in LU in each class: least and most.
PROMISES = {
    "music": ((-2, 0.5), (-1, 1), (-1, 1.5), (-1.5, 1), (-1, 1.5), (-2, 0), (-1.5, 0), (-1.5, 0)),
    "bass": ((-2.5, 0.5), (-1.5, 1), (-1.5, 2.5), (-2.5, 1.5), (-2, 2), (-3, -1.5), (-3.5, -0.5), (-3.5, -1.5)),
    "steady": ((-4.5, -1.5), (-2.5, 0), (-2, 1.5), (0, 2.5), (1.5, 4.5), (-3.5, -1.5), (-0.5, 3), (3.5, 6.5)),
    "night": ((-13, -9.5), (-10.5, -7.5), (-9, -5.5), (-7, -3.5), (-5, -1.5), (-11.5, -8), (-6.5, -2.5), (-1, 3)),
    "voice": ((-6.5, -3), (-5.5, -2), (-2.5, 0), (-1.5, 1.5), (-0.5, 3.5), (-4, -0.5), (-0.5, 3.5), (4.5, 7.5)),
    "loud": ((-2.5, 1.5), (1, 4), (3, 6.5), (5, 8), (7, 10.5), (-1.5, 2.5), (4, 8), (8.5, 12)),
    "off": ((-0.1, 0.1),) * 8,
}
WIDEST = 4
# The loudness range after, divided by that before, of pieces with a range of at least 5 LU.
RANGES = {"steady": (0.3, 0.85), "night": (0, 0.6)}
PEAKS = {"night": -10, "loud": 0}  # the highest true peak after, in dB
# Pieces that don't keep a promise, for each preset.
OUTSIDE = {
    "music": ("Enemy Unknown",),
    "bass": ("02 - Robert van Herk - City Blues",),
    "steady": ("Awakening", "Enemy Unknown"),
    "night": ("Enemy Unknown",),
    "voice": ("Enemy Unknown", "names"),
    "loud": ("Coherence", "Enemy Unknown", "en-us 100", "librivox"),
}


def run(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def excerpt(path, folder):
    """Cuts the second minute out of a piece, or the first if it is shorter than two."""
    whole = float(run("ffprobe", "-v", "quiet", "-show_entries", "format=duration", "-of", "csv=p=0", path))
    start = ["-ss", "60"] if whole >= 120 else []
    output = f"{folder}/{len(os.listdir(folder))}.wav"
    run("ffmpeg", "-v", "error", *start, "-t", "60", "-i", path, "-vn", "-c:a", "pcm_f32le", output)
    return output


def join(name, files, folder):
    output = f"{folder}/{name}.wav"
    if files.endswith(".raw"):
        run("ffmpeg", "-y", "-v", "error", "-f", "s16le", "-ar", "16000", "-ac", "1", "-i", files, output)
        return output
    with open(f"{folder}/{name}.txt", "w", encoding="utf-8") as names:
        names.writelines(f"file '{path}'\n" for path in sorted(glob.glob(files)))
    run("ffmpeg", "-y", "-v", "error", "-f", "concat", "-safe", "0", "-i", names.name, "-c:a", "pcm_s16le", output)
    return output


def music_paths():
    return {name: f"{folder}/{name}{ending}" for folder, ending, names in MUSIC for name in names.split(",")}


def make_six(folder):
    made = {one[0]: join(*one, folder) for one in JOINED if one[0] in SIX.values()}
    return {kind: made.get(name) or music_paths()[name] for kind, name in SIX.items()}


def make_all(folder):
    """Returns the music and the speech, as paths by name."""
    music = {name: excerpt(path, folder) for name, path in music_paths().items()}
    speech = {}
    for voice, amplitude in VOICES:
        path = speech[f"{voice} {amplitude}"] = f"{folder}/{voice}-{amplitude}.wav"
        run("espeak-ng", "-v", voice, "-a", str(amplitude), "-w", path, TEXT)
    return music, {**speech, **{one[0]: join(*one, folder) for one in JOINED}}


def measure(orvane, preset, source, output):
    report = json.loads(run(orvane, "render", "-f", "--json", "--preset", preset, source, output))
    return {when: {"loudness": report["loudnessLufs"][when], "range": report["loudnessRangeLu"][when] or 0,
                   "peak": report["truePeakDb"][when]} for when in ("before", "after")}


def class_of(lufs, is_speech):
    names = list(CLASSES)[MUSIC_CLASSES:] if is_speech else list(CLASSES)[:MUSIC_CLASSES]
    return next((name for name in names if CLASSES[name][0] <= lufs < CLASSES[name][1]), None)


def broken(preset, is_speech, measured):
    """Returns what the preset doesn't keep for a piece, as texts."""
    before, after = measured["before"], measured["after"]
    faults = []

    def check(what, value, least, most):
        if not least <= value <= most:
            faults.append(f"{what} {value:+.1f} instead of {least} to {most}")

    kind = class_of(before["loudness"], is_speech)
    if kind:
        check("loudness", after["loudness"] - before["loudness"], *PROMISES[preset][list(CLASSES).index(kind)])
    if preset in RANGES and before["range"] >= 5:
        check("range", after["range"] / before["range"], *RANGES[preset])
    if preset in PEAKS:
        check("peak", after["peak"], -99, PEAKS[preset])
    return faults


def change(measured):
    return round(measured["after"]["loudness"] - measured["before"]["loudness"], 1) + 0.0


def six_rows(orvane, folder, faults):
    sources = make_six(folder)
    for preset in PROMISES:
        for kind, name in SIX.items():
            measured = measure(orvane, preset, sources[kind], f"{folder}/out.wav")
            if name not in OUTSIDE.get(preset, ()):
                is_speech = name in ("librivox", "names")
                faults += [f"{preset}, {kind}: {text}" for text in broken(preset, is_speech, measured)]
            before, after = measured["before"], measured["after"]
            yield (f"| {preset} | {kind} | {before['loudness']:.1f} | {change(measured):+.1f} "
                   f"| {before['range']:.1f} → {after['range']:.1f} "
                   f"| {before['peak']:+.1f} → {after['peak']:+.1f} |")


def all_tables(orvane, folder, faults):
    rows, outside = [], {preset: [] for preset in PROMISES}
    for is_speech, pieces in enumerate(make_all(folder)):
        for number, (name, path) in enumerate(pieces.items()):
            results = {preset: measure(orvane, preset, path, f"{folder}/out.wav") for preset in PROMISES}
            for preset, measured in results.items():
                kept = not broken(preset, is_speech, measured)
                if not kept:
                    outside[preset].append(name)
                if kept == (name in OUTSIDE.get(preset, ())):
                    faults.append(f"{preset}, {name}: {broken(preset, is_speech, measured) or 'keeps its promise'}")
            before = results["off"]["before"]
            rows.append((is_speech, -before["loudness"], f"| {name} | {'judged' if number % 2 else 'tuned'} "
                         f"| {before['loudness']:.1f} | {before['range']:.1f} | " +
                         " | ".join(f"{change(measured):+.1f}" for preset, measured in results.items()
                                    if preset != "off") + " |"))
    presets = [preset for preset in PROMISES if preset != "off"]
    yield "preset-promises", ["| source | " + " | ".join(presets) + " |", "|---" * (len(presets) + 1) + "|"] + [
        f"| {kind} | " + " | ".join("{:+g} to {:+g}".format(*PROMISES[preset][i]) for preset in presets) + " |"
        for i, kind in enumerate(CLASSES)] + ["| pieces outside | " + " | ".join(
            ", ".join(outside[preset]) or "none" for preset in presets) + " |"]
    yield "preset-pieces", ["| piece | half | LUFS | range, LU | " + " | ".join(presets) + " |",
                            "|---" * (len(presets) + 4) + "|"] + [row for _, _, row in sorted(rows)]


def main():
    orvane, faults = os.path.abspath(sys.argv[1]), []
    for preset, promises in PROMISES.items():
        if any(most - least > WIDEST for least, most in promises):
            sys.exit(f"{preset}: a range is wider than {WIDEST} LU")
    with tempfile.TemporaryDirectory() as folder:
        tables = [("preset-measures", ["| preset | kind | LUFS before | loudness, LU | range, LU | true peak, dB |",
                                       "|---|---|---|---|---|---|", *six_rows(orvane, folder, faults)])]
        if sys.argv[2:] == ["--all"]:
            tables += all_tables(orvane, folder, faults)
    if faults:
        sys.exit("\n".join(faults))
    for name, table in tables:
        print(f"generated: {name}", *table, "end generated", sep="\n")


if __name__ == "__main__":
    main()
