#!/bin/sh
# Installs what was built into a prefix, and as Debian packages into a root folder. Uses the programs
# there and removes the packages.
#   package_test.sh BUILD_FOLDER [page]    page: scripts/web.sh has made the page, so it must be inside
set -eu
umask 022
build=$1 page=${2:-}
here=$(mktemp -d) elsewhere=$(mktemp -d -p /dev/shm)
trap 'rm -rf "$here" "$elsewhere"' EXIT
command -v lintian >/dev/null || { echo "skipped: no lintian"; exit 0; }

# Checks what is installed in the folder $1, which has bin, lib and share.
use() {
  "$1/bin/orvane" response "$here/a.png" -f
  "$1/bin/orvane" info | head -n 1 | grep "^$1/lib/orvane/soundfx/"
  LV2_PATH=$1/lib/lv2 lv2ls | grep -qx urn:quenthra:orvane
  man -l "$1/share/man/man1/orvane.1.gz" | grep -q skip-existing
  man -l "$1/share/man/man1/orvane-desktop.1.gz" | grep -q leave-out
  # The files that the service and the window's entry name exist.
  service=$1/lib/systemd/user/orvane-desktop.service
  [ -e "$service" ]
  for path in $(sed -n 's|.*[=/]/usr/\([^ ]*\).*|\1|p' "$service"); do [ -e "$1/$path" ]; done
  icon=$(sed -n 's/^Icon=//p' "$1"/share/applications/*.desktop)
  [ -e "$1/share/icons/hicolor/scalable/apps/$icon.svg" ]
  for program in bin/orvane bin/orvane-desktop lib/lv2/orvane.lv2/orvane.so; do
    readelf -d "$1/$program" | grep -q BIND_NOW
    [ "${program#bin}" = "$program" ] || readelf --dyn-syms -W "$1/$program" | grep -q _chk@
  done
  [ -z "$page" ] || "$1/bin/orvane" compare "$here/a.wav" "$here/a.html" -f
  bash -c ". '$1/share/bash-completion/completions/orvane' && complete -p orvane"
}
head -c 44100 /dev/zero | ffmpeg -v error -f s16le -ar 44100 -ac 1 -i - "$here/a.wav"
cmake --install "$build" --prefix "$here/prefix" >/dev/null
use "$here/prefix"

(cd "$build" && cpack -G DEB -B "$here/package" >/dev/null)
# Building the packages again gives the same bytes, although files are newer and the umask is another one.
# Folders have other sizes on the other file system, too.
touch "$build/orvane" "$build/orvane.1.gz" "$build"/orvane.lv2/*.ttl
(cd "$build" && umask 077 && TZ=Asia/Tokyo cpack -G DEB -B "$elsewhere" >/dev/null)
root=$here/root
mkdir -p "$root/var/lib/dpkg/updates" "$root/var/lib/dpkg/info"
touch "$root/var/lib/dpkg/status"
dpkg() { command dpkg --root="$root" --log="$here/log" --force-not-root,depends,bad-path "$@"; }
for name in orvane orvane-desktop liborvane0 liborvane-dev; do
  package=$(ls "$here/package/${name}_"*.deb)
  cmp "$package" "$elsewhere/${package##*/}"
  # lintian must find what the overrides name and nothing else.
  lintian --allow-root "$package" | (! grep .)
  lintian --allow-root --no-override "$package" | cut -d ' ' -f 2- | sort >"$here/found"
  grep -v '^#' "$build/lintian/$name" | sort | cmp - "$here/found"
  dpkg -i "$package" >/dev/null 2>&1
done
desktop-file-validate "$root"/usr/share/applications/*.desktop
use "$root/usr"
dpkg -P orvane orvane-desktop liborvane-dev liborvane0 >/dev/null
[ ! -e "$root/usr" ] || { find "$root/usr"; exit 1; }
