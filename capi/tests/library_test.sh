#!/bin/sh
# Installs the C library into a prefix and uses it as a program does. Tests the exported names, pkg-config,
# CMake and the program stream_test.c. The example must give the renderer's samples.
#   library_test.sh BUILD_FOLDER
set -eu
build=$(realpath "$1")
source=$(realpath "$(dirname "$0")/../..")
here=$(mktemp -d)
trap 'rm -rf "$here"' EXIT
prefix=$here/prefix
cmake --install "$build" --prefix "$prefix" --component library >/dev/null
cmake --install "$build" --prefix "$prefix" --component development >/dev/null
library=$(dirname "$(find "$prefix" -name liborvane.so.0)")
export PKG_CONFIG_PATH="$library/pkgconfig" LD_LIBRARY_PATH="$library"

# Both libraries export the functions of the header and nothing else, and the manual page names each.
sed -n 's/.*\(orvane_[a-z0-9_]*\)(.*[^)]$\|^[^/ ].*\(orvane_[a-z0-9_]*\)(.*;$/\1\2/p' \
  "$prefix/include/orvane.h" | grep -v '^$' | sort -u >"$here/declared"
nm -D --defined-only "$library/liborvane.so.0" | sed -n 's/.* [^A] //p' | sed 's/@@ORVANE_0$//' |
  sort | diff "$here/declared" -
nm -g --defined-only "$library/liborvane.a" | sed -n 's/^[0-9a-f]* . //p' | sort | diff "$here/declared" -
man -l "$build/orvane.3.gz" | tr -d '\n ‐-' >"$here/page"
while read -r name; do grep -q "$name" "$here/page"; done <"$here/declared"

cc="gcc -std=c89 -pedantic-errors -Wall -Wextra -Werror"
flags=$(pkg-config --cflags --libs orvane)
# shellcheck disable=SC2086  # words
$cc "$source/capi/tests/stream_test.c" -o "$here/stream_test" $flags -lm
"$here/stream_test"
# shellcheck disable=SC2086,SC2046  # words
$cc "$source/capi/filter.c" -o "$here/filter" $flags
# shellcheck disable=SC2046  # words
$cc "$source/capi/filter.c" -o "$here/static" $(pkg-config --cflags orvane) "$library/liborvane.a" \
  $(pkg-config --static --libs-only-l orvane | sed 's/-lorvane//')

mkdir "$here/project"
cat >"$here/project/CMakeLists.txt" <<END
cmake_minimum_required(VERSION 3.25)
project(filter C)
find_package(orvane 2 REQUIRED)
foreach(library orvane orvane_static)
  add_executable(filter_\${library} $source/capi/filter.c)
  target_link_libraries(filter_\${library} orvane::\${library})
endforeach()
END
cmake -S "$here/project" -B "$here/project" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$here/project" >/dev/null

# Compares what the program $1 makes of the piece with what the renderer makes.
pcm() { ffmpeg -v error -i "$1" -f s16le - ; }
compare() {
  "$1" "$rate" "$preset" "$flags" <"$here/in.pcm" | cmp "$here/wanted" -
}
for rate in 44100 48000; do
  noise="anoisesrc=r=$rate:d=2:a=0.7:seed=1,aeval='val(0)*(0.1+sin(2*t))|val(0)*sin(9*t)'"
  ffmpeg -v error -y -f lavfi -i "$noise" -c:a pcm_s16le "$here/in.wav"
  pcm "$here/in.wav" >"$here/in.pcm"
  for preset in $("$build/orvane" render --list-presets | sed -n 's/^\([a-z]\+\).*/\1/p'); do
    for flags in 0 1 2; do
      cold=
      [ $flags = 2 ] && cold=--cold-start
      "$build/orvane" render "$here/in.wav" "$here/out.wav" -q -f --preset "$preset" --no-dither \
        --buffer $((flags == 1 ? 770 : 1024)) $cold
      pcm "$here/out.wav" >"$here/wanted"
      compare "$here/filter"
    done
  done
done
compare "$here/static"
compare "$here/project/filter_orvane"
compare "$here/project/filter_orvane_static"
