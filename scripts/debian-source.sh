#!/bin/sh
# Fetches the upstream source of a Debian package through this machine's own package sources. Needs no
# root. Changes nothing outside the folder, which must not exist yet.
# usage: scripts/debian-source.sh PACKAGE FOLDER
set -eu
package=$1 folder=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
chmod 755 "$work"

# Makes lists of sources from the machine's lists of packages, which are in one-line or deb822 style.
mkdir -p "$work/sources" "$work/lists/partial" "$work/unpacked"
for list in /etc/apt/sources.list /etc/apt/sources.list.d/*.list; do
  [ -f "$list" ] && sed -n 's/^deb /deb-src /p' "$list" >>"$work/sources/all.list"
done
for list in /etc/apt/sources.list.d/*.sources; do
  [ -f "$list" ] && sed 's/^Types:.*/Types: deb-src/' "$list" >"$work/sources/$(basename "$list")"
done
apt() {
  apt-get -qq -o Dir::Etc::SourceList=/dev/null -o Dir::Etc::SourceParts="$work/sources" \
    -o Dir::State::Lists="$work/lists" -o Dir::Cache::srcpkgcache= -o Dir::Cache::pkgcache= \
    -o APT::Sandbox::User= "$@"
}
apt update
(cd "$work" && apt source --download-only --tar-only "$package")
tar -xf "$work"/*.orig.tar.* -C "$work/unpacked" --strip-components=1
mkdir -p "$(dirname "$folder")"
mv "$work/unpacked" "$folder"
