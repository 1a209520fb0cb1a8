#!/bin/bash
# Installs what the build and the lab need on Debian 12, as root. Only what is
# missing is installed, so a second run costs a few dpkg queries.
set -euo pipefail

packages=(wine wine64 g++-mingw-w64-x86-64-posix msitools wixl cmake ninja-build
          libfmt-dev googletest dpkg-dev python3 openssl make
          nginx tinyproxy-bin curl)
# Servers the HTTPS lab starts itself, unprivileged, on ports of its own
# (tests/lab/https): none may run as a system service. tinyproxy-bin is the
# program without the service; nginx brings its service along, which is kept
# from starting below.
lab_servers=(nginx tinyproxy)

# jsoncpp is built from Debian's source package, which needs a deb-src entry.
# The machine already names its archive, mirror and key in its deb entries: the
# deb-src entry is a copy of the one that carries the release's main archive.
#   main_archive_src CODENAME FILE...   (FILE in the order apt reads them)
# prints nothing when an enabled deb-src entry for CODENAME is there already,
# else "sources" or "list" (the format of the entry found) followed by its
# deb-src counterpart; fails when no deb entry fits.
main_archive_src() {
  awk -v codename="$1" '
    function has(list, word,    n, i, w) {
      n = split(list, w, /[ \t]+/)
      for (i = 1; i <= n; i++) if (w[i] == word) return 1
      return 0
    }
    # Among several entries for the suite, the one signed with the archive
    # keyring is Debian itself.
    function consider(types, suites, components, signed, text,    score) {
      if (has(types, "deb-src") && has(suites, codename)) have_src = 1
      if (!has(types, "deb") || !has(suites, codename) || !has(components, "main")) return
      score = 1 + (signed ~ /debian-archive-keyring/)
      if (score > best) { best = score; best_format = format; best_text = text }
    }
    # deb822: one stanza at a time, continuation lines kept with their field.
    function stanza_end(    i, n, line, key, value, f, text, enabled) {
      if (lines == 0) return
      delete f
      text = ""
      for (i = 1; i <= lines; i++) {
        line = stanza[i]
        if (line ~ /^[ \t]/) { if (key != "types") text = text "\n" line; f[key] = f[key] " " line; continue }
        key = tolower(line); sub(/:.*/, "", key)
        value = line; sub(/^[^:]*:[ \t]*/, "", value)
        f[key] = value
        text = text (text == "" ? "" : "\n") (key == "types" ? "Types: deb-src" : line)
      }
      enabled = tolower(f["enabled"])
      if (enabled != "no" && enabled != "false")
        consider(f["types"], f["suites"], f["components"], f["signed-by"], text)
      lines = 0
    }
    FNR == 1 { stanza_end(); format = FILENAME ~ /\.sources$/ ? "sources" : "list" }
    format == "sources" {
      if ($0 ~ /^#/) next
      if ($0 ~ /^[ \t]*$/) { stanza_end(); next }
      stanza[++lines] = $0
      next
    }
    # One-line entries: TYPE [OPTIONS] URI SUITE COMPONENT...
    {
      line = $0
      sub(/#.*/, "", line)
      n = split(line, w, /[ \t]+/)
      i = (w[1] == "") ? 2 : 1
      type = w[i++]
      if (type != "deb" && type != "deb-src") next
      signed = ""
      if (w[i] ~ /^\[/) {
        for (; i <= n; i++) {
          if (w[i] ~ /^(\[)?signed-by=/) signed = w[i]
          if (w[i] ~ /\]$/) { i++; break }
        }
      }
      components = ""
      for (j = i + 2; j <= n; j++) components = components " " w[j]
      text = line
      sub(/^[ \t]*deb/, "deb-src", text)
      sub(/[ \t]+$/, "", text)
      consider(type, w[i + 1], components, signed, text)
    }
    END {
      stanza_end()
      if (have_src) exit 0
      if (!best) exit 3
      print best_format
      print best_text
    }
  ' "${@:2}"
}

need_update=0
codename=$(. /etc/os-release && echo "${VERSION_CODENAME:-}")
if [ -z "$codename" ]; then
  echo "setup: /etc/os-release names no release codename; cannot tell which apt entry is the main archive" >&2
  exit 1
fi
apt_files=()
[ -f /etc/apt/sources.list ] && apt_files+=(/etc/apt/sources.list)
while IFS= read -r f; do apt_files+=("$f"); done < <(
  find /etc/apt/sources.list.d -maxdepth 1 -type f \( -name '*.list' -o -name '*.sources' \) \
    ! -name '*.disabled*' 2>/dev/null | LC_ALL=C sort)
if [ ${#apt_files[@]} -eq 0 ] || ! found=$(main_archive_src "$codename" "${apt_files[@]}"); then
  echo "setup: no enabled deb entry for Debian's $codename main archive in /etc/apt/sources.list" \
       "or /etc/apt/sources.list.d/*.{list,sources}; add one, or a deb-src entry, and run again" >&2
  exit 1
fi
if [ -n "$found" ]; then
  src_file=/etc/apt/sources.list.d/zenthra-deb-src.${found%%$'\n'*}
  tail -n +2 <<<"$found" > "$src_file"
  echo "setup: added $src_file for jsoncpp's source package:"
  sed 's/^/  /' "$src_file"
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

# Processes of the lab's server programs, as "pid name" lines.
server_processes() {
  local d name
  for d in /proc/[0-9]*; do
    name=$(cat "$d/comm" 2>/dev/null) || continue
    for s in "${lab_servers[@]}"; do
      [ "$name" = "$s" ] && echo "${d#/proc/} $name"
    done
  done
  return 0
}

if [ ${#missing[@]} -gt 0 ]; then
  echo "installing: ${missing[*]}"
  # A package's postinst starts its service through invoke-rc.d unless
  # policy-rc.d says 101 (action forbidden). One the machine has already
  # (container images ship one) stays as it is.
  made_policy=0
  if [ ! -e /usr/sbin/policy-rc.d ]; then
    printf '#!/bin/sh\n# zenthra-updatetool setup: no service starts while packages are installed\nexit 101\n' \
      > /usr/sbin/policy-rc.d
    chmod 755 /usr/sbin/policy-rc.d
    made_policy=1
    trap 'rm -f /usr/sbin/policy-rc.d' EXIT
  fi
  DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
  if [ $made_policy -eq 1 ]; then
    rm -f /usr/sbin/policy-rc.d
    trap - EXIT
  fi
  # Nor may the service start at the next boot, or run now if a policy of
  # the machine let it start.
  for s in "${lab_servers[@]}"; do
    if [ -e "/lib/systemd/system/$s.service" ]; then
      systemctl disable --now "$s.service" >/dev/null 2>&1 || systemctl disable "$s.service" >/dev/null 2>&1 || true
    fi
    if [ -x "/etc/init.d/$s" ]; then
      "/etc/init.d/$s" stop >/dev/null 2>&1 || true
      update-rc.d "$s" disable >/dev/null 2>&1 || true
    fi
  done
  # Only right after an install: a lab of another build tree may run its
  # own servers at other times.
  running=
  for p in "${missing[@]}"; do
    case "$p" in nginx|tinyproxy-bin) running=$(server_processes) ;; esac
  done
  if [ -n "$running" ]; then
    echo "setup: a system service of the lab's servers is running after the install:" >&2
    sed 's/^/  /' <<<"$running" >&2
    exit 1
  fi
fi
