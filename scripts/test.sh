#!/bin/sh
# Builds everything and runs all tests, on a Debian 12 machine with nothing prepared.
set -eu
cd "$(dirname "$0")/.."
scripts/install-packages.sh test
cmake --preset release
cmake --build --preset release
ctest --preset release -j "$(nproc)"
