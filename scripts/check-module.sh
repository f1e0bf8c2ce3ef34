#!/bin/sh
# Compiles what android/Android.mk compiles, with its options, and checks the instructions. An NDK isn't
# needed: clang, which NDKs have, makes the same instructions with Debian's headers. It is linked against
# the stand-ins of the preset armv7, whose library for devices must be built before.
#
# usage: check-module.sh
set -eu
cd "$(dirname "$0")/.."
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
make -s -f android/tests/print_module.mk ANDROID=android ORVANE_PREBUILT=none >"$work/words"
grep '^-' "$work/words" | grep -v '^-Wl\|^-l' >"$work/options"
# The options of an NDK for armeabi-v7a come first, so that the module's can change them.
grep '\.cpp$' "$work/words" | xargs -P 2 -I{} sh -c "clang++ --target=arm-linux-gnueabi -march=armv7-a \
    -mfloat-abi=softfp -mfpu=neon -fPIC -I. -isystem /usr/include/android $(tr '\n' ' ' <"$work/options") \
    -c {} -o $work/\$(echo {} | tr / _).o"
# shellcheck disable=SC2046  # one word an option
arm-linux-gnueabi-gcc -shared -nostdlib -o "$work/module.so" "$work"/*.o $(grep '^-Wl' "$work/words") \
    -Lbuild/armv7/android/device -lc -lm -llog -lgcc
scripts/check-library.sh --instructions "$work/module.so" arm-linux-gnueabi-
