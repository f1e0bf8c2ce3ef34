#!/bin/sh
# Runs the audio thread's calls under clang's real-time sanitizer. It stops at the first allocation,
# blocking call or lock, except the unit's own lock. Clang has this sanitizer since version 20.
#
# usage: scripts/realtime-sanitizer.sh [CLANG++]
#
# The default is clang++-22, from clang-22 and libclang-rt-22-dev of Debian 12's security updates.
set -eu
cd "$(dirname "$0")/.."
cmake -B build/rtsan -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DORVANE_TOOLS=OFF \
    -DORVANE_SANITIZE=realtime -DCMAKE_CXX_COMPILER="${1:-clang++-22}"
cmake --build build/rtsan --target realtime_tests
build/rtsan/tests/realtime_tests
