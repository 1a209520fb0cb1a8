#!/bin/bash
# Installs what the build and the lab need on Debian 12, as root. Only what is
# missing is installed, so a second run costs a few dpkg queries.
set -euo pipefail

packages=(wine wine64 g++-mingw-w64-x86-64-posix msitools wixl cmake ninja-build
          libfmt-dev googletest dpkg-dev python3 openssl make)

need_update=0
# jsoncpp is built from Debian's source package, which needs a deb-src entry.
if ! grep -rqsE '^(deb-src|Types:.*deb-src)' /etc/apt/sources.list /etc/apt/sources.list.d/; then
  cat > /etc/apt/sources.list.d/zenthra-deb-src.sources <<'SRC'
Types: deb-src
URIs: http://deb.debian.org/debian
Suites: bookworm bookworm-updates
Components: main
Signed-By: /usr/share/keyrings/debian-archive-keyring.gpg
SRC
  need_update=1
fi

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ] || [ $need_update -eq 1 ] || [ ! -d /var/lib/apt/lists ] || \
   ! ls /var/lib/apt/lists/ 2>/dev/null | grep -q '_Sources'; then
  apt-get update -qq
fi
if [ ${#missing[@]} -gt 0 ]; then
  echo "installing: ${missing[*]}"
  DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi
