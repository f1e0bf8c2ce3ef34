#!/bin/sh
# Builds the whole Debian package, with the page for browsers, on a Debian 12 machine with nothing
# prepared. The result is build/render/orvane_VERSION_ARCHITECTURE.deb.
set -eu
umask 022
cd "$(dirname "$0")/.."
scripts/install-packages.sh render
scripts/web.sh
cmake --preset release -B build/render -DORVANE_TESTS=OFF >/dev/null
cmake --build build/render
rm -f build/render/orvane_*.deb
(cd build/render && cpack)
dpkg-deb --contents build/render/orvane_*.deb | grep '/orvane\.html$'
