#!/bin/bash
# One job from start to end in a fresh lab, as a management side drives it:
# the machine has an older agent installed, the share holds the newer
# installer, the job is written in DOWNLOAD and the tool runs; the
# management side then sets UPDATING and the tool runs again. After each
# run: the exit code, the tool log, the job's values in the registry and the
# installed version (read from the machine, not from the tool). Exits
# non-zero unless the job ends DONE/OK with the new version installed.
#   demo.sh BUILD
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
build=$(cd "${1:?usage: demo.sh BUILD}" && pwd)
tool="$build/bin/zenthra-updatetool.exe"
[ -f "$tool" ] || { echo "demo: $tool is missing; build first" >&2; exit 1; }
old_msi="$build/bin/fixtures/agent-8-10-0.msi"
new_msi="$build/bin/fixtures/agent-8-12-0.msi"
for msi in "$old_msi" "$new_msi"; do
  [ -f "$msi" ] || { echo "demo: $msi is missing; build first" >&2; exit 1; }
done
product="Zenthra Lab Agent"
new_version=8.12.0

# A prefix of its own, beside the test lab, which it leaves alone; it stays
# after the demo for a look around and is made afresh by the next one.
prefix="$build/wineprefix-demo"
export WINEPREFIX="$prefix"
. "$here/wine-env.sh"

echo "== A fresh lab in $prefix"
"$here/lab.sh" stop "$prefix"
rm -rf "$prefix"
"$here/lab.sh" prepare "$prefix"
trap '"$here/lab.sh" stop "$prefix"' EXIT
winpath() { wine winepath -w "$1" 2>/dev/null | tr -d '\r'; }

# The installed version as Windows Installer registered it: the product's
# uninstall entry, found by its name.
installed() {
  wine reg query 'HKLM\Software\Microsoft\Windows\CurrentVersion\Uninstall' /s 2>/dev/null | tr -d '\r' |
    awk -v want="$product" '
      /^HKEY_/ { key = $0; name = ""; version = ""; next }
      $1 == "DisplayName" { $1 = ""; $2 = ""; sub(/^ +/, ""); name = $0 }
      $1 == "DisplayVersion" { version = $3 }
      name == want && version != "" { n = split(key, parts, "\\"); print version, parts[n]; name = "" }'
}
show_installed() {
  local found
  found=$(installed)
  echo "$product installed: ${found:-(none)}"
}

echo
echo "== The machine has the older agent: msiexec /i $(basename "$old_msi") /qn"
wine msiexec /i "$(winpath "$old_msi")" /qn
show_installed

# The share the job names: \\fileserver\share is a folder of the build tree,
# reached through the prefix's UNC mapping. It holds the newer installer.
demo="$build/demo"
rm -rf "$demo"
mkdir -p "$demo/share" "$demo/logs"
cp "$new_msi" "$demo/share/Zenthra-Agent-$new_version.msi"
mkdir -p "$prefix/dosdevices/unc/fileserver"
ln -sfn "$demo/share" "$prefix/dosdevices/unc/fileserver/share"
size=$(stat -c %s "$demo/share/Zenthra-Agent-$new_version.msi")
sum=$(sha256sum "$demo/share/Zenthra-Agent-$new_version.msi" | cut -d' ' -f1)

job='HKLM\Software\Tarvelle\Zenthra\Agent\Update\DemoJob'
echo
echo "== The management side writes the job $job"
add() { wine reg add "$job" /v "$1" /t REG_SZ /d "$2" /f >/dev/null; }
# AGENT "OTHER": the tool runs the file the job names, and runs an .msi
# through msiexec, which is what this installer is. "TOVI" would start the
# file itself as a setup program ("<file> /s /v /qn ..."), which an .msi is
# not, and a TOVI install never reports success in its own run: even a good
# install leaves UPDATING/FAILURE until a later run finds the version. So
# OTHER is the kind under which this job truly ends DONE/OK.
add AGENT OTHER
add VERSION "$new_version"
add ARCH 64-BitAgent
add UNC_PATH "\\\\fileserver\\share\\Zenthra-Agent-$new_version.msi"
add FILESIZE "$size"
add CHECKSUM "$sum"
add STATE DOWNLOAD
add RESULT ''
add RETRY 0
# A failed attempt waits before its retry; two seconds keep the demo short.
wine reg add 'HKLM\Software\Tarvelle\Zenthra\Agent\Update' /v RetryWaitPeriod /t REG_SZ /d 2000 /f >/dev/null
wine reg add 'HKLM\Software\Tarvelle\Zenthra' /v InstallLogsDir /t REG_SZ /d "$(winpath "$demo/logs")" /f >/dev/null
wine reg query "$job" | tr -d '\r'

# Runs the tool once and shows what it left.
run_tool() {
  echo
  echo "== Running $(basename "$tool") ($1)"
  # The log file is named after the second the run starts in: one second
  # apart, each run has a file of its own.
  sleep 1
  local before rc signed
  before=$(ls "$demo/logs/updatetool" 2>/dev/null || true)
  set +e
  wine "$tool" > "$demo/console.txt" 2>&1
  rc=$?
  set -e
  # Wine hands Linux only the low 8 bits of the 32-bit exit code; the tool's
  # codes are small negative numbers, so the byte read as signed is the code.
  signed=$(( rc > 127 ? rc - 256 : rc ))
  echo "== Exit code: $signed (Linux saw $rc, the low byte of the 32-bit code, read back as signed)"

  echo
  echo "== The tool log"
  local log found=0
  shopt -s nullglob
  for log in "$demo/logs/updatetool"/Tarvelle_Agent_Update_*.log; do
    grep -q -x -F "$(basename "$log")" <<<"$before" && continue
    found=1
    echo "-- $log"
    # UTF-16LE with a byte order mark.
    iconv -f UTF-16 -t UTF-8 "$log" | tr -d '\r'
  done
  shopt -u nullglob
  [ $found -eq 1 ] || echo "(no new log file in $demo/logs/updatetool)"

  echo
  echo "== The job's values afterwards"
  wine reg query "$job" | tr -d '\r'
  echo
  show_installed
}

value() { wine reg query "$job" /v "$1" 2>/dev/null | tr -d '\r' | awk -v n="$1" '$1 == n { print $3 }'; }

run_tool "DOWNLOAD: fetch and verify the installer"

echo
echo "== The management side sees $(value STATE)/$(value RESULT) and sets STATE UPDATING"
add STATE UPDATING

run_tool "UPDATING: install"

echo
state=$(value STATE)
result=$(value RESULT)
version=$(installed | awk 'NR == 1 { print $1 }')
if [ "$state/$result" = "DONE/OK" ] && [ "$version" = "$new_version" ]; then
  echo "== Done: the job is $state/$result and $product $version is installed"
else
  echo "== FAILED: the job is ${state:-?}/${result:-?} and the installed version is ${version:-none}," \
    "expected DONE/OK and $new_version" >&2
  exit 1
fi
