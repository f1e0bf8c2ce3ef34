#!/usr/bin/env python3
"""Writes the first inputs of the fuzz targets.

usage: make_corpus.py SCENARIO... FOLDER

FOLDER/fuzz_host gets the recorded scenarios (tests/data/runs/*.txt), long stretches of equal buffers
cut to a few so that an input runs in milliseconds, and one with a refusal; FOLDER/fuzz_classes gets,
for each class with levels, a history in which they are set to what isn't a number. The byte forms are described in the
targets.
"""
import pathlib
import struct
import sys

RATE, CHANNELS, FORMAT, ACCESS = 2, 4, 8, 16


def command(code, block=b"", offered=4):
    return bytes([1, code, 0, len(block), offered]) + block


def side(rate, channels):
    mask = RATE | CHANNELS | FORMAT | ACCESS
    return struct.pack("<QQIIQQQBBHxxxx", 0, 0, rate, (1 << channels) - 1, 0, 0, 0, 1, 0, mask)


def parameter(identifier, values):
    return struct.pack(f"<iIIi{len(values)}i", 0, 4, 4 * len(values), identifier, *values)


def convert(text):
    out = bytes([0, 0])
    for line in text.splitlines():
        words = line.split("#")[0].split()
        if not words:
            continue
        verb, values = words[0], [int(word, 0) for word in words[1:]]
        if verb == "configure":
            out += command(1, side(*values) * 2)
        elif verb == "command":
            out += command(values[0])
        elif verb == "set":
            out += command(5, parameter(values[0], values[1:]))
        elif verb == "get":
            out += command(8, parameter(values[0], [0]), 20)
        elif verb == "process":
            frames, count = values
            out += bytes([2]) + struct.pack("<H", frames) + bytes([(min(count, 4) - 1) << 3])
    return out


# A buffer that must grow and can't, the time of processing, records cut short, bad calls, the
# safe-mode marker.
REFUSED = (
    bytes([0, 0])
    + command(1, side(48000, 2) * 2)
    + command(5, parameter(0x20008, [1]))
    + command(5, parameter(0x9001, [1]))
    + command(3)
    + bytes([4, 1, 2]) + struct.pack("<H", 5000) + bytes([0, 2, 0, 4, 0])
    + command(8, parameter(0x8004, [0]), 20)
    + command(5, parameter(0x20001, [1])[:12])
    + command(8, parameter(0x8004, [])[:12], 20)
    + bytes([5, 0, 128, 5, 3])
)

INFINITE, NEGATIVE_INFINITE, NOT_A_NUMBER = 0, 1, 2  # AnyFloat's choices
MANY_FRAMES = 255

WILD = {
    "limiter": [0, 0, NOT_A_NUMBER, 3, 0, INFINITE, 3],
    "limiter-fp": [1, 0, NOT_A_NUMBER, 3, 0, INFINITE, 3],
    "playback-gain": [2, 3, 1, 0, NOT_A_NUMBER, 1, INFINITE, 2, NEGATIVE_INFINITE, 7, 2, MANY_FRAMES],
    "equalizer": [3, 1, 1, 0, 4, NOT_A_NUMBER, 0, 9, INFINITE, 6, 2, MANY_FRAMES],
    "equalizer-double": [4, 1, 1, 0, 4, NOT_A_NUMBER, 0, 9, NEGATIVE_INFINITE, 6, 2, MANY_FRAMES],
    "enhancer": [5, 2, 1, 0, NOT_A_NUMBER, 1, INFINITE] + [11, 1, MANY_FRAMES] * 2,
    "enhancer-double": [6, 2, 1, 0, INFINITE, 1, NOT_A_NUMBER] + [11, 1, MANY_FRAMES] * 2,
}


def main():
    *scenarios, folder = map(pathlib.Path, sys.argv[1:])
    inputs = {f"fuzz_host/{path.stem}": convert(path.read_text()) for path in scenarios}
    inputs["fuzz_host/refused"] = REFUSED
    inputs |= {f"fuzz_classes/{name}": bytes(history) for name, history in WILD.items()}
    for name, content in inputs.items():
        path = folder / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(content)


main()
