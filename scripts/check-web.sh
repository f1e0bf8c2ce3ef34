#!/bin/sh
# Makes the page and the package and tests both. The module's samples and measurements are tested in
# node, and the page in Debian's Chromium. They are compared with the renderer's samples, so the
# renderer (preset release) must have been built.
set -eu
cd "$(dirname "$0")/.."
scripts/web.sh
scripts/install-packages.sh browser
command -v npm >/dev/null || scripts/install-packages.sh npm
npm install --prefix web/tests --no-package-lock --no-fund --no-audit --loglevel=error
node --test web/tests/*.test.mjs
