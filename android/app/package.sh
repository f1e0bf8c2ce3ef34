#!/bin/sh
# Makes orvane-VERSION.aar, which apps add to their build, from the three native libraries. Builds what
# is missing. With --check, only checks one native library and names what is wrong with it.
#
# usage: package.sh FOLDER
#        package.sh --check LIBRARY [PREFIX of the binutils]
set -eu
root=$(cd "$(dirname "$0")/../.." && pwd)
lowest_sdk=21 # Android 5.0, the first with 64 bits

# A library may need only libc and libm, take only the stand-ins' functions from them, and export only
# its interfaces. Its segments must begin at pages of 16 KB.
check() {
  wrong=$("${2}readelf" -d "$1" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/needs \1/p' |
    grep -vxE 'needs lib[cm]\.so' || true)
  sed -n 's/^PLATFORM_FUNCTION(\(.*\))/imports \1/p' "$root"/android/app/platform.c \
    "$root"/android/device/lib[cm].c | sort -u >"$work/allowed"
  wrong="$wrong$("${2}nm" -D -u "$1" | sed 's/^.* [Uw] /imports /; s/@.*//' |
    grep -vxFf "$work/allowed" || true)"
  wrong="$wrong$("${2}nm" -D --defined-only "$1" | sed 's/^.* /exports /' |
    grep -vxE 'exports (Java_com_quenthra_orvane_Orvane|orvane_).*' || true)"
  wrong="$wrong$("${2}readelf" -lW "$1" | awk '$1 == "LOAD" && $NF != "0x4000" {print "aligns to", $NF}')"
  [ "$("${2}nm" -D "$1" | grep -c ' T Java_')" -ge 10 ] || wrong="$wrong lacks its methods"
  [ -z "$wrong" ] || { echo "package.sh: $1 $wrong" >&2; exit 1; }
}

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
if [ "$1" = --check ]; then
  check "$2" "${3:-}"
  exit
fi

add() { # ABI PRESET PREFIX
  [ -e "$root/build/$2/build.ninja" ] || (cd "$root" && cmake --preset "$2")
  cmake --build "$root/build/$2" --target orvane_app
  library=$root/build/$2/android/app/liborvane_app.so
  check "$library" "$3"
  mkdir -p "$work/aar/jni/$1"
  "${3}strip" -o "$work/aar/jni/$1/liborvane_app.so" "$library"
}
add arm64-v8a aarch64 aarch64-linux-gnu-
add armeabi-v7a armv7 arm-linux-gnueabi-
add x86_64 release ''

version=$(sed -n 's/^CMAKE_PROJECT_VERSION:.*=//p' "$root/build/release/CMakeCache.txt")
date=$(git -C "$root" log -1 --format=%cI)
mkdir "$work/classes"
javac --release 8 -Xlint:-options -implicit:none -sourcepath "$root/android/app/tests" -d "$work/classes" \
  "$root"/android/app/com/quenthra/orvane/*.java
jar --create --no-manifest --date="$date" --file "$work/aar/classes.jar" -C "$work/classes" com
cat >"$work/aar/AndroidManifest.xml" <<END
<?xml version="1.0" encoding="utf-8"?>
<manifest xmlns:android="http://schemas.android.com/apk/res/android" package="com.quenthra.orvane">
    <uses-sdk android:minSdkVersion="$lowest_sdk" />
</manifest>
END
# Tools that rename unused methods must leave those that the native library names.
echo '-keep class com.quenthra.orvane.** { *; }' >"$work/aar/proguard.txt"
mkdir -p "$1"
rm -f "$1/orvane-$version.aar"
jar --create --no-manifest --date="$date" --file "$1/orvane-$version.aar" -C "$work/aar" .
echo "$1/orvane-$version.aar"
