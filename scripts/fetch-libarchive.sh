#!/bin/bash
# Makes DEST a link to libarchive's Debian source package at VERSION, Debian's
# patches applied. The source is unpacked once per machine and user, outside
# any build tree, and every build tree after the first links to that copy:
#   ${XDG_CACHE_HOME:-$HOME/.cache}/zenthra-updatetool/libarchive-VERSION
# Fails when apt doesn't offer VERSION (cmake/Dependencies.cmake names it).
#   fetch-libarchive.sh VERSION DEST
set -euo pipefail
usage="usage: fetch-libarchive.sh VERSION DEST"
version=${1:?$usage}
dest=${2:?$usage}
package=libarchive  # the source package of libarchive-dev
cache=${XDG_CACHE_HOME:-${HOME:?neither XDG_CACHE_HOME nor HOME is set}/.cache}/zenthra-updatetool
cached=$cache/libarchive-$version
fail() { echo "fetch-libarchive: $*" >&2; exit 1; }

mkdir -p "$cache"
# Build trees configured at the same time wait for one unpacking.
exec 9>"$cached.lock"
flock 9
if [ ! -f "$cached/CMakeLists.txt" ]; then
  offered=$({ apt-cache showsrc "$package" 2>/dev/null || true; } | sed -n 's/^Version: //p' | sort -u | paste -sd ' ')
  if [ -z "$offered" ]; then
    fail "apt offers no $package source package; scripts/setup.sh adds the deb-src entry it needs"
  fi
  if ! tr ' ' '\n' <<<"$offered" | grep -qxF "$version"; then
    fail "apt offers $package $offered, not $version, the version this project builds against"
  fi
  echo "fetch-libarchive: unpacking $package $version into $cached"
  work=$(mktemp -d "$cache/.libarchive-$version.XXXXXX")
  trap 'rm -rf "$work"' EXIT
  # apt's chatter (such as its note on downloading as root) only when it fails.
  if ! out=$(cd "$work" && apt-get source -qq "$package=$version" 2>&1); then
    printf '%s\n' "$out" >&2
    fail "apt-get source $package=$version failed"
  fi
  src=$(find "$work" -mindepth 1 -maxdepth 1 -type d)
  [ -n "$src" ] && [ "$(wc -l <<<"$src")" -eq 1 ] && [ -f "$src/CMakeLists.txt" ] ||
    fail "apt-get source $package=$version gave no single source tree in $work"
  got=$(dpkg-parsechangelog -l "$src/debian/changelog" -S Version)
  [ "$got" = "$version" ] || fail "apt-get source $package=$version unpacked version $got"
  rm -rf "$cached"
  mv -T "$src" "$cached"
fi
exec 9>&-

mkdir -p "$(dirname "$dest")"
rm -rf "$dest"
ln -s "$cached" "$dest"
