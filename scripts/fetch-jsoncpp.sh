#!/bin/bash
# Unpacks Debian's jsoncpp source package into $1 (Debian's patches applied).
set -euo pipefail
dest=$1
work=$(dirname "$dest")/jsoncpp-apt
rm -rf "$work" "$dest"
mkdir -p "$work"
cd "$work"
apt-get source -qq libjsoncpp-dev >/dev/null
src=$(find . -maxdepth 1 -type d -name "libjsoncpp-*" -o -maxdepth 1 -type d -name "jsoncpp-*" | head -n 1)
[ -n "$src" ] || { echo "apt-get source jsoncpp gave no source tree" >&2; exit 1; }
mv "$src" "$dest"
