#!/bin/sh
# Builds the library and the renderer and renders a piece of music through them, on a Debian 12
# machine with nothing prepared.
#
# usage: render.sh [FILE [OPTIONS of `orvane render`]]
#
# Without a file it takes music from Debian's package caveexpress-data (CC-BY-SA-4.0).
set -eu
here=$(cd "$(dirname "$0")/.." && pwd)
"$here/scripts/install-packages.sh" render

if [ $# -gt 0 ]; then
  input=$(realpath "$1")
  shift
else
  input=$(dpkg -L caveexpress-data | grep '/music-2\.ogg$')
fi

cd "$here"
# The build folder is a separate one without tests, because tests need more packages.
cmake --preset release -B build/render -DORVANE_TESTS=OFF >/dev/null
cmake --build build/render --target orvane qth_orvane
mkdir -p out
name=$(basename "$input")
output=out/${name%.*}-orvane.wav
picture=out/${name%.*}-orvane.png
build/render/orvane render "$input" "$output" --picture "$picture" -f "$@"
cat <<END

Rendered  $input
to        $here/$output
picture   $here/$picture
The picture shows spectrum and loudness before and after, and what the chain did to them: its gain
over frequency, around the middle of hearing, and over time.
END
