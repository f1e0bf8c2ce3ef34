#!/bin/sh
# Format of every source file, and clang-tidy over those that the build folder compiles: all but
# the tests, or with `all` these too (some minutes more).
#
# usage: check-style.sh BUILD_FOLDER [all]
set -eu
cd "$(dirname "$0")/.."
build=$1
folders='platform|host|unit|dsp|effects|client|live|lv2|desktop|render|bench|android'
[ "${2:-}" != all ] || folders="$folders|tests"
sources=$(git ls-files '*.cpp' '*.h')
# shellcheck disable=SC2086  # one word a file
clang-format --dry-run -Werror $sources
echo "check-style: format passed"
# Without precompiled headers, which are another compiler's.
mkdir -p "$build/tidy"
sed 's/-Winvalid-pch -include [^ ]*//' "$build/compile_commands.json" >"$build/tidy/compile_commands.json"
run-clang-tidy -quiet -p "$build/tidy" "$(pwd)/($folders)/" >"$build/tidy.log" 2>&1 || {
  grep -E 'error|warning' "$build/tidy.log" >&2
  exit 1
}
echo "check-style: tidy passed, $(grep -c '^clang-tidy' "$build/tidy.log") files"
