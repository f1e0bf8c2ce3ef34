#!/bin/sh
# Checks the format of every source file and runs clang-tidy over those that the build folder compiles.
# Tests are left out unless `all` is given, which takes some minutes more. A file that has passed
# clang-tidy before is checked again only with `fresh` (see tidy.py).
#
# usage: check-style.sh BUILD_FOLDER [all] [fresh]
set -eu
cd "$(dirname "$0")/.."
build=$1
folders='platform|host|unit|dsp|effects|client|live|lv2|capi|desktop|render|bench|android|web'
fresh=
for word in "$@"; do
  case $word in
    all) folders="$folders|tests" ;;
    fresh) fresh=--fresh ;;
  esac
done
sources=$(git ls-files '*.cpp' '*.h')
# shellcheck disable=SC2086  # one word a file
clang-format --dry-run -Werror $sources
echo "check-style: format passed"
# shellcheck disable=SC2086  # no word or one
scripts/tidy.py $fresh "$build" "^$(pwd)/($folders)/"
echo "check-style: tidy passed"
