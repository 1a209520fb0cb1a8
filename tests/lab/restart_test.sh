#!/bin/bash
# A job whose installer asks for a restart (exit code 3010). The run must
# have saved the job's state, its telemetry entry and the volatile
# "NeedReboot" marker before it restarts the machine: here the Wine prefix of
# this test alone, since a restart ends every process of a prefix. The marker
# stands until that session ends and is gone after it; the state stays.
#   restart_test.sh BUILD
set -uo pipefail
build=$(cd "${1:?usage: restart_test.sh BUILD}" && pwd)
scripts=$(cd "$(dirname "$0")/../../scripts" && pwd)
prefix="$build/wineprefix-restart"
work="$build/restart-test"
export WINEPREFIX="$prefix"
. "$scripts/wine-env.sh"

status=0
check() {  # check DESCRIPTION COMMAND...
  local what=$1
  shift
  if "$@"; then echo "ok: $what"; else echo "FAILED: $what"; status=1; fi
}
cleanup() {
  "$scripts/lab.sh" stop "$prefix" >/dev/null 2>&1
  rm -rf "$prefix" "$prefix.lock" "$work"
}
cleanup
trap cleanup EXIT
"$scripts/lab.sh" prepare "$prefix" >/dev/null || { echo "FAILED: could not make the throwaway lab"; exit 1; }

mkdir -p "$work/logs"
cp "$build/bin/exitcode-installer.exe" "$work/setup-3010.exe"
winpath() { wine winepath -w "$1" 2>/dev/null | tr -d '\r'; }
logs=$(winpath "$work/logs")
setup=$(winpath "$work/setup-3010.exe")

job='HKLM\Software\Tarvelle\Zenthra\Agent\Update\RestartJob'
marker='HKLM\Software\Tarvelle\Zenthra\Agent\UpdateStatusVolatile'
put() { wine reg add "$1" /v "$2" /t REG_SZ /d "$3" /f >/dev/null 2>&1; }
put "$job" AGENT OTHER
put "$job" STATE UPDATING
put "$job" ARCH 64-BitAgent
put "$job" UNC_PATH '\\fileserver\share\setup-3010.exe'
put "$job" FILENAME "$setup"
put "$job" VERSION 9.9.9
put "$job" RETRY 0
put 'HKLM\Software\Tarvelle\Zenthra' InstallLogsDir "$logs"
put 'HKLM\Software\Tarvelle\Zenthra\Agent\Update' RetryWaitPeriod 100

# The restart ends the tool with every other process of the prefix.
timeout 120 wine "$build/bin/zenthra-updatetool.exe" > "$work/console.txt" 2>&1
rc=$?
check "the run ended by itself (no timeout)" test "$rc" -ne 124
# Wine carries the restart out with a wineboot of its own, which ends any
# process that starts meanwhile: let it finish before looking.
for _ in $(seq 100); do
  pgrep -f 'wineboot' >/dev/null || break
  sleep 0.2
done

value() { wine reg query "$1" /v "$2" 2>/dev/null | tr -d '\r' | awk -v n="$2" '$1 == n { $1 = ""; $2 = ""; sub(/^ +/, ""); print }'; }
has_value() { wine reg query "$1" /v "$2" >/dev/null 2>&1; }
console=$(tr -d '\r' < "$work/console.txt")
telemetry="$work/logs/updatetool/UpdateToolTelemetryData.json"

expect_value() {  # expect_value KEY NAME TEXT
  local actual
  actual=$(value "$1" "$2")
  if [ "$actual" = "$3" ]; then echo "ok: $2 is \"$3\""; else echo "FAILED: $2 is \"$actual\", expected \"$3\""; status=1; fi
}
# The stand-in installer records its command line in UTF-16.
installer_line=$(iconv -f UTF-16LE -t UTF-8 "$work/setup-3010.exe.cmdline.txt" 2>/dev/null)
check "the installer got the silent command line" grep -q -F -- '/s /v /qn' <<<"$installer_line"
expect_value "$job" STATE DONE
expect_value "$job" RESULT OK
expect_value "$job" RETRY 0
check "the agent's success is logged" grep -q 'App::Update: agent update succeeded' <<<"$console"
line_of() { grep -n -F -- "$1" <<<"$console" | head -n 1 | cut -d: -f1; }
saved=$(line_of "new state: DONE result: OK")
restarted=$(line_of "Initiated system reboot successfully.")
check "the restart was asked for after the state was saved" \
  test -n "$saved" -a -n "$restarted" -a "${saved:-0}" -lt "${restarted:-0}"
check "the telemetry entry was written" grep -q '"updatedGUID" : "RestartJob"' "$telemetry"
check "with the state DONE" grep -q '"status" : "DONE"' "$telemetry"
expect_value "$marker" NeedReboot 1

# The end of the prefix's session is the end of the boot the marker belongs to.
wineserver -k >/dev/null 2>&1
wineserver -w >/dev/null 2>&1
if has_value "$marker" NeedReboot; then echo "FAILED: the marker outlived the session"; status=1; else echo "ok: the marker is gone with the session"; fi
expect_value "$job" STATE DONE

if [ $status -ne 0 ]; then
  echo "--- tool output"
  cat "$work/console.txt"
fi
exit $status
