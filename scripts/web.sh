#!/bin/sh
# From nothing, on a Debian 12 machine, to what runs in a browser:
#   build/web/orvane.html                      the page: one file, works offline
#   build/web/quenthra-orvane-VERSION.tgz      the package for web developers
set -eu
cd "$(dirname "$0")/.."
scripts/install-packages.sh wasm
cmake --preset wasm
cmake --build --preset wasm
version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=\([0-9]*\.[0-9]*\.[0-9]*\).*/\1/p' build/wasm/CMakeCache.txt)
node web/bundle.mjs build/web "$version"
# As npm packs it: its folder is called package.
tar -C build/web -czf "build/web/quenthra-orvane-$version.tgz" package
ls -l build/web/orvane.html build/web/*.tgz
