#!/bin/sh
# Makes the page and the package, and tests both: the module's samples and figures in node, the page
# in Debian's Chromium. Needs the renderer (preset release), whose samples they are compared with.
set -eu
cd "$(dirname "$0")/.."
scripts/web.sh
scripts/install-packages.sh browser
command -v npm >/dev/null || scripts/install-packages.sh npm
npm install --prefix web/tests --no-package-lock --no-fund --no-audit --loglevel=error
node --test web/tests/*.test.mjs
