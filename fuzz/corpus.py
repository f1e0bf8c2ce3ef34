#!/usr/bin/env python3
"""Packs and unpacks the kept inputs of the fuzz targets, and writes first inputs of fuzz_host.

    corpus.py unpack TARGET FOLDER    writes a file for each input
    corpus.py pack TARGET FOLDER      keeps the files of a folder instead of the earlier inputs
    corpus.py runs RUNS FOLDER        writes first inputs

The kept inputs are in corpus.txt, which has one line for each target: its name, and in base64 a
text that LZMA compressed. In this text, each input is one line of hexadecimal digits. The lines are
sorted, and no input occurs twice.

`runs` converts the recorded runs (tests/data/runs) and adds one input with a refused allocation.
Long stretches of equal buffers become a few, so that an input runs in milliseconds. The byte form
is described in fuzz_host.cpp. The inputs of fuzz_reader and fuzz_tags began as small files that
libsndfile, ffmpeg and metaflac wrote, and as files with marks and with damaged headers. All other
inputs were found by fuzzing, or contain settings that are not numbers.
"""
import base64
import hashlib
import lzma
import pathlib
import struct
import sys

RATE, CHANNELS, FORMAT, ACCESS = 2, 4, 8, 16  # bits of the mask of a configuration
NO_BLOCK, NO_REPLY, NO_REPLY_SIZE = 1, 2, 4  # flags of a command


def command(code, block=b"", offered=4, flags=0):
    return bytes([1, code, flags, len(block), offered]) + block


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


# This input has a buffer that must grow but cannot, the time of processing, records that are cut
# short or null, invalid calls, and the safe-mode marker.
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
    + command(5, parameter(0x20001, [1]), 4, NO_BLOCK)
    + command(8, parameter(0x8004, []), 20, NO_BLOCK)
    + command(1, side(48000, 2) * 2, 4, NO_BLOCK)
    + command(8, parameter(0x8004, []), 20, NO_REPLY)
    + command(8, parameter(0x8004, []), 20, NO_REPLY_SIZE)
    + command(0, b"", 4, NO_REPLY | NO_REPLY_SIZE)
    + bytes([5, 0, 128, 5, 3])
)


CORPUS = pathlib.Path(__file__).with_name("corpus.txt")


def read_corpus():
    return dict(line.split() for line in CORPUS.read_text().splitlines())


def unpack(target, folder):
    packed = read_corpus().get(target)
    for line in lzma.decompress(base64.b64decode(packed)).decode().split() if packed else []:
        data = bytes.fromhex(line)
        (folder / hashlib.sha1(data).hexdigest()).write_bytes(data)


def pack(target, folder):
    text = "\n".join(sorted({path.read_bytes().hex() for path in folder.iterdir()}))
    packed = base64.b64encode(lzma.compress(text.encode(), preset=9)).decode()
    lines = read_corpus() | {target: packed}
    CORPUS.write_text("".join(f"{name} {lines[name]}\n" for name in sorted(lines)))


def runs(path, folder):
    for run in path.read_text().split("\nrun ")[1:]:
        heading, calls = run.split("\n", 1)
        (folder / heading.split()[0]).write_bytes(convert(calls))
    (folder / "refused").write_bytes(REFUSED)


def main():
    if len(sys.argv) != 4 or sys.argv[1] not in ("unpack", "pack", "runs"):
        sys.exit(__doc__)
    verb, source, folder = sys.argv[1], sys.argv[2], pathlib.Path(sys.argv[3])
    folder.mkdir(parents=True, exist_ok=True)
    if verb == "runs":
        runs(pathlib.Path(source), folder)
    else:
        (unpack if verb == "unpack" else pack)(source, folder)


main()
