#!/usr/bin/env python3
"""Packs and unpacks the kept inputs of the fuzz targets.

    fuzz_corpus.py unpack TARGET FOLDER    writes a file for each input
    fuzz_corpus.py pack TARGET FOLDER      keeps the files of a folder instead of the earlier inputs

The kept inputs are in fuzz/corpus.txt, which has one line for each target: its name, and in base64 a
text that LZMA compressed. In this text, each input is one line of hexadecimal digits. The lines are
sorted, and no input occurs twice.

The inputs of fuzz_host began as the recorded runs (tests/data/runs) in the byte form that fuzz_host.cpp
describes, and as one input with a refused allocation. The inputs of fuzz_reader and fuzz_tags began as
small files that libsndfile, ffmpeg and metaflac wrote, and as files with marks and with damaged headers.
All other inputs were found by fuzzing, or contain settings that are not numbers.
"""
import base64
import hashlib
import lzma
import pathlib
import sys

CORPUS = pathlib.Path(__file__).resolve().parent.parent / "fuzz/corpus.txt"


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


if len(sys.argv) != 4 or sys.argv[1] not in ("unpack", "pack"):
    sys.exit(__doc__)
target_folder = pathlib.Path(sys.argv[3])
target_folder.mkdir(parents=True, exist_ok=True)
(unpack if sys.argv[1] == "unpack" else pack)(sys.argv[2], target_folder)
