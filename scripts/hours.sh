#!/bin/sh
# Plays 28 hours, or as many as the argument says, through the library (see bench/hours.cpp). 28 hours
# are more than 2^32 frames. Takes about an hour of one processor; the two parts run at the same time.
#
# usage: scripts/hours.sh [HOURS]
set -eu
cd "$(dirname "$0")/.."
hours=${1:-28}
cmake --preset release -DORVANE_BENCH=ON
cmake --build --preset release --target hours
nice build/release/bench/hours "$hours" drift >build/release/drift &
status=0
nice build/release/bench/hours "$hours" chain || status=$?
wait $! || status=$?
cat build/release/drift
exit $status
