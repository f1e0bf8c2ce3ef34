#!/bin/sh
# Runs what arrives on the audio thread under clang's real-time sanitizer, which stops at the first
# allocation, lock (but the unit's own) or blocking call. Clang knows it from 20 on.
#
# usage: scripts/realtime-sanitizer.sh [CLANG++]     default: clang++-22 (Debian 12 security updates:
#                                                    clang-22, libclang-rt-22-dev)
set -eu
cd "$(dirname "$0")/.."
cmake -B build/rtsan -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DORVANE_TOOLS=OFF \
    -DORVANE_SANITIZE=realtime -DCMAKE_CXX_COMPILER="${1:-clang++-22}"
cmake --build build/rtsan --target realtime_tests
build/rtsan/tests/realtime_tests
