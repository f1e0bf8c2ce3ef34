#!/usr/bin/env python3
"""Shows how near the ten bands come to twenty curves of headphones, for docs/controlling.md.

    tone-table.py ORVANE | fill_in.py --part [--check] docs/controlling.md

ORVANE is the program. The curves are made here, in the two forms that AutoEq publishes, and resemble
published ones: shelves at 105 Hz and 10 kHz, broad bells everywhere, and narrow bells between 1.5 and
9 kHz. The seeds are fixed, so the curves are always the same. Fails if the program doesn't say that
ten bands can't give a curve that it misses by 1.5 dB or more.
"""
import json
import math
import os
import random
import subprocess
import sys
import tempfile
import wave

CURVES = 20
GRAPHIC_POINTS = 127


def parametric(chance):
    """Returns the lines of a ParametricEQ file with ten filters."""
    filters = [("LSC", 105, chance.uniform(-4, 7), 0.7), ("HSC", 10000, chance.uniform(-5, 4), 0.7)]
    for _ in range(4):
        filters.append(("PK", 40 * 200 ** chance.random(), chance.uniform(-5, 4), chance.uniform(0.4, 1.5)))
    for _ in range(4):
        filters.append(("PK", 1500 * 6 ** chance.random(), chance.uniform(-4, 4), chance.uniform(2, 6)))
    lines = ["Preamp: -6.0 dB"]
    for number, (kind, hz, db, q) in enumerate(filters, 1):
        lines.append(f"Filter {number}: ON {kind} Fc {hz:.0f} Hz Gain {db:.1f} dB Q {q:.2f}")
    return "\r\n".join(lines) + "\r\n"


def graphic(chance):
    """Returns the line of a GraphicEQ file."""
    bells = [(40 * 200 ** chance.random(), chance.uniform(-5, 4), chance.uniform(0.5, 1.2)) for _ in range(4)]
    bells += [(1500 * 6 ** chance.random(), chance.uniform(-4, 4), chance.uniform(0.1, 0.3)) for _ in range(4)]
    bass = chance.uniform(-4, 7)
    points = []
    for i in range(GRAPHIC_POINTS):
        hz = round(20 * 1000 ** (i / (GRAPHIC_POINTS - 1)))
        db = -6 + bass / (1 + (hz / 105) ** 2)
        db += sum(top * math.exp(-(math.log2(hz / middle) / width) ** 2) for middle, top, width in bells)
        points.append(f"{hz} {db:.1f}")
    return "GraphicEQ: " + "; ".join(points)


def measure(orvane, folder, name, text):
    path = f"{folder}/{name}.txt"
    with open(path, "w", encoding="ascii", newline="") as file:
        file.write(text)
    command = [orvane, "render", "-f", "--json", "--preset", "off", "--tone", path, f"{folder}/in.wav",
               f"{folder}/out.wav"]
    report = json.loads(subprocess.run(command, check=True, capture_output=True).stdout)["tone"]
    said = subprocess.run([orvane, "tone", path], check=True, capture_output=True, text=True).stdout
    if ("ten bands can't give this curve" in said) != (abs(report["worstDb"]) >= 1.5):
        sys.exit(f"{name}: off by {report['worstDb']:.2f} dB, but the program says: {said.splitlines()[-1]}")
    return report


def main():
    orvane = os.path.abspath(sys.argv[1])
    table = ["| curve | rms, dB | rms from 60 Hz to 8 kHz | worst | at |", "|---|---|---|---|---|"]
    with tempfile.TemporaryDirectory() as folder:
        with wave.open(f"{folder}/in.wav", "wb") as sound:
            sound.setparams((1, 2, 44100, 0, "NONE", None))
            sound.writeframes(bytes(4096))
        for number in range(1, CURVES + 1):
            make = parametric if number <= CURVES // 2 else graphic
            fit = measure(orvane, folder, number, make(random.Random(number)))
            table.append(f"| {make.__name__} {number} | {fit['rmsDb']:.2f} | {fit['middleRmsDb']:.2f} "
                         f"| {fit['worstDb']:+.1f} dB | {fit['worstHz']:.0f} Hz |")
    print("generated: tone-curves", *table, "end generated", sep="\n")


if __name__ == "__main__":
    main()
