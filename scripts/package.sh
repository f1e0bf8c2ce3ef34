#!/bin/sh
# Builds the Debian package with all that belongs in it, the page for browsers included, on a Debian 12
# machine with nothing prepared. Leaves build/render/orvane_VERSION_ARCHITECTURE.deb.
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
