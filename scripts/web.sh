#!/bin/sh
# Builds everything that runs in a browser, on a Debian 12 machine with nothing prepared:
#   build/web/orvane.html                      the page, one file that works offline
#   build/web/quenthra-orvane-VERSION.tgz      the package for web developers
set -eu
cd "$(dirname "$0")/.."
scripts/install-packages.sh wasm
cmake --preset wasm
cmake --build --preset wasm
version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=\([0-9]*\.[0-9]*\.[0-9]*\).*/\1/p' build/wasm/CMakeCache.txt)
node web/bundle.mjs build/web "$version"
# npm expects that the folder inside is called package.
tar -C build/web -czf "build/web/quenthra-orvane-$version.tgz" package
ls -l build/web/orvane.html build/web/*.tgz
