#!/bin/sh
# Builds both Debian packages, orvane with the page for browsers and orvane-desktop with the window, on a
# Debian 12 machine with nothing prepared. The results are build/render/orvane_VERSION_ARCHITECTURE.deb and
# build/render/orvane-desktop_VERSION_ARCHITECTURE.deb.
set -eu
umask 022
cd "$(dirname "$0")/.."
scripts/install-packages.sh render window
scripts/web.sh
cmake --preset release -B build/render -DORVANE_TESTS=OFF >/dev/null
cmake --build build/render
rm -f build/render/orvane*.deb
(cd build/render && cpack)
dpkg-deb --contents build/render/orvane_*.deb | grep '/orvane\.html$'
dpkg-deb --contents build/render/orvane-desktop_*.deb | grep '/orvane-desktop-window$'
