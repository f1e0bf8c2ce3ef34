#!/bin/sh
# Plays 28 hours (or as many as the argument says) through the library, see tests/hours.cpp: more
# than 2^32 frames. Takes some twenty minutes of one processor.
set -eu
cd "$(dirname "$0")/.."
cmake --preset release
cmake --build --preset release --target hours
nice build/release/tests/hours "${1:-28}"
