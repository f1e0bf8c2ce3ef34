#!/bin/sh
# Format and static checks of every source file. Needs a configured build folder with its
# compile_commands.json.
#   check-style.sh BUILD_FOLDER
set -eu
cd "$(dirname "$0")/.."
build=$1
sources=$(git ls-files '*.cpp' '*.h')
# shellcheck disable=SC2086  # one word a file
clang-format --dry-run -Werror $sources
echo "check-style: format passed"
# Those that the build folder compiles; fuzz targets and the cross build have their own compilers.
run-clang-tidy -quiet -p "$build" "$(pwd)/(platform|host|unit|dsp|effects|tools|tests|bench|android)/" \
  > "$build/tidy.log" 2>&1 || { grep -E 'error|warning' "$build/tidy.log" >&2; exit 1; }
echo "check-style: tidy passed"
