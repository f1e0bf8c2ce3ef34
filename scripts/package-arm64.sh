#!/bin/sh
# Builds the Debian package of the renderer and the plug-in for 64-bit ARM on another machine, and runs
# its program under emulation. The libraries for ARM are downloaded into build/arm64/root. Of what is for
# ARM, only the cross compiler and the emulator are installed; the rest needs no root.
#
# usage: package-arm64.sh
set -eu
cd "$(dirname "$0")/.."
build=$PWD/build/arm64
root=$build/root
# The folder of Debian's libraries for ARM below the root.
libraries=$root/usr/lib/aarch64-linux-gnu
scripts/install-packages.sh render arm

# Configures apt-get separately, so that it takes this machine for an ARM machine without packages.
if [ ! -e "$build/downloaded" ]; then
    rm -rf "$root" "$build/apt"
    mkdir -p "$root" "$build/apt/lists/partial" "$build/apt/archives/partial"
    : >"$build/apt/status"
    cat >"$build/apt/conf" <<CONF
APT::Architecture "arm64";
APT::Architectures { "arm64"; };
Dir::State "$build/apt";
Dir::State::status "$build/apt/status";
Dir::Cache "$build/apt";
CONF
    export APT_CONFIG="$build/apt/conf"
    apt-get update -qq
    apt-get install -qq -y --no-install-recommends --download-only libsndfile1-dev libsoxr-dev \
        libebur128-dev libcli11-dev nlohmann-json3-dev libfmt-dev libtag1-dev libfftw3-dev lv2-dev \
        libspeexdsp-dev libpipewire-0.3-dev
    for package in "$build"/apt/archives/*.deb; do dpkg-deb -x "$package" "$root"; done
    # Absolute links would lead out of the root.
    find "$root" -type l -lname '/*' | while read -r link; do
        ln -sfn "$root$(readlink "$link")" "$link"
    done
    touch "$build/downloaded"
fi

export PKG_CONFIG_SYSROOT_DIR="$root" \
    PKG_CONFIG_LIBDIR="$libraries/pkgconfig:$root/usr/share/pkgconfig"
cmake --preset aarch64 -B "$build" -DCMAKE_SYSROOT="$root" -DORVANE_TOOLS=ON -DORVANE_TESTS=OFF
cmake --build "$build"
# Collect which package a program needs that is linked with these libraries.
needed=$build/apt/shlibs
for package in "$build"/apt/archives/*.deb; do dpkg-deb -I "$package" shlibs 2>/dev/null || true; done >"$needed"
(
    cd "$build"
    rm -f orvane_*_arm64.deb
    # Dependencies come from the ARM packages and not from those that this machine has installed.
    CC=aarch64-linux-gnu-gcc dpkg-architecture -aarm64 -c cpack -D CPACK_DEBIAN_PACKAGE_ARCHITECTURE=arm64 \
        -D CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS="$libraries;$root/lib/aarch64-linux-gnu;$root/lib" \
        -D "SHLIBDEPS_EXECUTABLE=dpkg-shlibdeps;-L$needed"
)

# Uses the package as on an ARM machine. A decoder may round its floats differently there, so the
# comparison starts from a file of 16-bit samples.
package=$(ls "$build"/orvane_*_arm64.deb)
rm -rf "$build/unpacked"
dpkg-deb -x "$package" "$build/unpacked"
orvane() { qemu-aarch64 -L "$root" "$build/unpacked/usr/bin/orvane" "$@"; }
orvane info | grep "^$build/unpacked/usr/lib/orvane/soundfx/"
orvane render -q -f --preset off /usr/share/games/caveexpress/sounds/music-2.ogg "$build/piece.wav"
orvane render -q -f --preset loud "$build/piece.wav" "$build/arm.wav"
native=$(ls build/release/orvane build/render/orvane 2>/dev/null | head -n 1)
if [ -n "$native" ]; then
    "$native" render -q -f --preset loud "$build/piece.wav" "$build/native.wav"
    cmp "$build/arm.wav" "$build/native.wav"
    echo "package-arm64: renders the same file as $native"
else
    echo "package-arm64: no program of this machine to compare with (scripts/render.sh builds one)"
fi
dpkg-deb -f "$package" Architecture Depends | grep -F libsndfile1
echo "package-arm64: $package"
