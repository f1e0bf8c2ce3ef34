#!/bin/sh
# Makes the page and the package, and checks both. The type check compares all scripts with the
# package's index.d.ts, and reads the built one. The format is prettier's. The tests run the module in
# node and the page in Debian's Chromium. They compare samples and figures with the renderer's, so it
# must be built (preset release). The versions of what npm installs stand in web/tests/package.json.
set -eu
cd "$(dirname "$0")/.."
scripts/web.sh
scripts/install-packages.sh browser
command -v npm >/dev/null || scripts/install-packages.sh npm
npm install --prefix web/tests --no-package-lock --no-fund --no-audit --loglevel=error
tools=$PWD/web/tests/node_modules/.bin
"$tools/tsc" -p web
"$tools/tsc" --strict --noEmit --lib es2024,dom build/web/package/index.d.ts
(cd web && "$tools/prettier" --check '**/*.{js,mjs,ts}' '!{embedded,table}.*')
node --test web/tests/*.test.mjs
