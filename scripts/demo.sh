#!/bin/bash
# One run of the tool in a fresh lab, and what a management side then sees:
# the exit code, the tool log and the job's values in the registry.
#   demo.sh BUILD
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
build=$(cd "${1:?usage: demo.sh BUILD}" && pwd)
tool="$build/bin/zenthra-updatetool.exe"
[ -f "$tool" ] || { echo "demo: $tool is missing; build first" >&2; exit 1; }

prefix="$build/wineprefix"
export WINEPREFIX="$prefix"
. "$here/wine-env.sh"

echo "== A fresh lab in $prefix"
"$here/lab.sh" stop "$prefix"
rm -rf "$prefix"
"$here/lab.sh" prepare "$prefix"
trap '"$here/lab.sh" stop "$prefix"' EXIT

# The share the job names: \\fileserver\share is a folder of the build tree,
# reached through the prefix's UNC mapping.
demo="$build/demo"
rm -rf "$demo"
mkdir -p "$demo/share" "$demo/logs"
printf 'Zenthra agent installer (demo payload)\n' > "$demo/share/agent.msi"
mkdir -p "$prefix/dosdevices/unc/fileserver"
ln -sfn "$demo/share" "$prefix/dosdevices/unc/fileserver/share"
size=$(stat -c %s "$demo/share/agent.msi")
sum=$(sha256sum "$demo/share/agent.msi" | cut -d' ' -f1)

job='HKLM\Software\Tarvelle\Zenthra\Agent\Update\DemoJob'
echo "== The management side writes the job $job"
add() { wine reg add "$job" /v "$1" /t REG_SZ /d "$2" /f >/dev/null; }
add AGENT OTHER
add VERSION 8.12.0
add ARCH 64-BitAgent
add UNC_PATH '\\fileserver\share\agent.msi'
add FILESIZE "$size"
add CHECKSUM "$sum"
add STATE DOWNLOAD
add RESULT ''
add RETRY 0
# A failed attempt waits before its retry; two seconds keep the demo short.
wine reg add 'HKLM\Software\Tarvelle\Zenthra\Agent\Update' /v RetryWaitPeriod /t REG_SZ /d 2000 /f >/dev/null
logs_win=$(wine winepath -w "$demo/logs" 2>/dev/null | tr -d '\r')
wine reg add 'HKLM\Software\Tarvelle\Zenthra' /v InstallLogsDir /t REG_SZ /d "$logs_win" /f >/dev/null
wine reg query "$job" | tr -d '\r'

echo "== Running $(basename "$tool")"
set +e
wine "$tool" | tr -d '\r'
rc=${PIPESTATUS[0]}
set -e
# Wine hands Linux only the low 8 bits of the 32-bit exit code; the tool's
# codes are small negative numbers, so the byte read as signed is the code.
signed=$(( rc > 127 ? rc - 256 : rc ))
echo
echo "== Exit code: $signed (Linux saw $rc, the low byte of the 32-bit code, read back as signed)"

echo
echo "== The tool log"
shopt -s nullglob
logs=("$demo/logs/updatetool"/Tarvelle_Agent_Update_*.log)
if [ ${#logs[@]} -eq 0 ]; then
  echo "(no log file in $demo/logs/updatetool)"
else
  for log in "${logs[@]}"; do
    echo "-- $log"
    # UTF-16LE with a byte order mark.
    iconv -f UTF-16 -t UTF-8 "$log" | tr -d '\r'
  done
fi

echo
echo "== The job's values afterwards"
wine reg query "$job" | tr -d '\r'
