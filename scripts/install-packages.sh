#!/bin/bash
# Installs the Debian packages that the named jobs need and that are missing, as root or through sudo.
# Says beforehand how much it downloads. Prints its progress about every ten seconds.
#
# usage: install-packages.sh JOB...
#
#   render   builds the library and the renderer, and holds a piece of music and gnuplot for pictures
#   window   builds the window of orvane-desktop
#   test     all of these, and what tests and checks need
#   arm      the cross compilers and their emulator
#   wasm     builds the WebAssembly module, runs it and bundles the page
#   browser  the browser in which the page is tested
#   npm      npm, which some packages of Node.js lack
set -euo pipefail

render="g++ cmake ninja-build pkg-config libsndfile1-dev libsoxr-dev libebur128-dev libcli11-dev
  nlohmann-json3-dev libfmt-dev libtag1-dev libfftw3-dev gnuplot-nox fonts-dejavu-core
  caveexpress-data dpkg-dev file lv2-dev libspeexdsp-dev libpipewire-0.3-dev"
window="libadwaita-1-dev"
test="binutils libgtest-dev android-libcutils clang clang-format clang-tidy clang-tools
  libclang-rt-14-dev llvm-14 python3 android-liblog-dev valgrind default-jdk-headless make git
  man-db parallel rsync lintian fretsonfire-songs-muldjord pocketsphinx-testdata alsa-utils
  liblilv-dev lilv-utils sordi ffmpeg jalv jackd1 pipewire-bin libpipewire-0.3-modules wireplumber
  dbus-daemon systemd xvfb at-spi2-core gir1.2-atspi-2.0 python3-gi python3-z3
  desktop-file-utils libstdc++-12-dev-armel-cross"
arm="cmake ninja-build python3 g++-arm-linux-gnueabi g++-aarch64-linux-gnu qemu-user googletest
  android-liblog-dev"
wasm="cmake ninja-build clang lld wasi-libc libclang-rt-14-dev-wasm32 libc++-14-dev-wasm32 nodejs esbuild dpkg-dev"
browser="chromium ffmpeg"
npm="npm"

wanted=
for job in "$@"; do
  case $job in
    render) wanted="$wanted $render" ;;
    window) wanted="$wanted $window" ;;
    test) wanted="$wanted $render $window $test" ;;
    arm) wanted="$wanted $arm" ;;
    wasm) wanted="$wanted $wasm" ;;
    browser) wanted="$wanted $browser" ;;
    npm) wanted="$wanted $npm" ;;
    *) echo "install-packages.sh: no job called $job" >&2; exit 2 ;;
  esac
done

missing=
for package in $wanted; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed' ||
    missing="$missing $package"
done
[ -z "$missing" ] && exit 0
root=
[ "$(id -u)" = 0 ] || root=sudo

# Turns apt-get's status lines into one line at every 5 per cent and one every ten seconds in between.
show_progress() {
  local kind percent text step told='' next=0
  while IFS=: read -r kind _ percent text; do
    case $kind in
      dlstatus) kind=downloading ;;
      pmstatus) kind=installing ;;
      *) continue ;;
    esac
    percent=${percent%.*}
    step="$kind $((percent / 5))"
    [ "$step" != "$told" ] || [ "$SECONDS" -ge "$next" ] || continue
    echo "  $kind, $percent %: $text"
    told=$step
    next=$((SECONDS + 10))
  done
}

echo "Packages that are missing:$missing"
echo "Reading Debian's lists of packages ..."
$root apt-get update -qq
# shellcheck disable=SC2206  # one word a package
install=(apt-get install --no-install-recommends $missing)
echo "With what they depend on:"
$root env LC_ALL=C "${install[@]}" --assume-no 2>&1 |
  grep -E ' newly installed, |^Need to get |^After this operation' | sed 's/^/  /' || true
$root env LC_ALL=C DEBIAN_FRONTEND=noninteractive "${install[@]}" -y -qq -o APT::Status-Fd=1 |
  show_progress
