#!/bin/sh
# Builds the Debian packages on a Debian 12 machine with nothing prepared: orvane with the page for browsers,
# orvane-desktop with the window, liborvane0 and liborvane-dev. The results are
# build/render/PACKAGE_VERSION_ARCHITECTURE.deb.
set -eu
umask 022
cd "$(dirname "$0")/.."
scripts/install-packages.sh render window
scripts/web.sh
cmake --preset release -B build/render -DORVANE_TESTS=OFF >/dev/null
cmake --build build/render
rm -f build/render/*.deb
(cd build/render && cpack)
dpkg-deb --contents build/render/orvane_*.deb | grep '/orvane\.html$'
dpkg-deb --contents build/render/orvane-desktop_*.deb | grep '/orvane-desktop-window$'
