#!/bin/bash
# Jobs for the product's own agent ("AGENT" "TOVI") whose setup program ends
# with a code that a restart could follow (3010, 1641), under the default
# retry settings (retries left): the run result stays -1 for this kind of
# agent, so the job ends in UPDATING with "FAILURE" and the machine is not
# restarted. Should the tool restart it all the same, that would end every
# process of the prefix: so this runs from outside Wine, in a prefix of its
# own that is thrown away afterwards, and a process started in the prefix
# beforehand must still be running afterwards.
#   tovi_no_restart_test.sh BUILD
set -uo pipefail
build=$(cd "${1:?usage: tovi_no_restart_test.sh BUILD}" && pwd)
scripts=$(cd "$(dirname "$0")/../../scripts" && pwd)
prefix="$build/wineprefix-tovi-norestart"
work="$build/tovi-norestart-test"
export WINEPREFIX="$prefix"
. "$scripts/wine-env.sh"

status=0
ok() { echo "ok: $1"; }
bad() { echo "FAILED: $1"; status=1; }
check() {  # check DESCRIPTION COMMAND...
  local what=$1
  shift
  if "$@"; then ok "$what"; else bad "$what"; fi
}
sentinel=
cleanup() {
  [ -n "$sentinel" ] && kill "$sentinel" 2>/dev/null
  "$scripts/lab.sh" stop "$prefix" >/dev/null 2>&1
  rm -rf "$prefix" "$prefix.lock" "$work"
}
cleanup
trap cleanup EXIT
"$scripts/lab.sh" prepare "$prefix" >/dev/null || { echo "FAILED: could not make the throwaway lab"; exit 1; }

winpath() { wine winepath -w "$1" 2>/dev/null | tr -d '\r'; }
put() { wine reg add "$1" /v "$2" /t REG_SZ /d "$3" /f >/dev/null 2>&1; }
value() { wine reg query "$1" /v "$2" 2>/dev/null | tr -d '\r' | awk -v n="$2" '$1 == n { $1 = ""; $2 = ""; sub(/^ +/, ""); print }'; }
has_value() { wine reg query "$1" /v "$2" >/dev/null 2>&1; }
expect_value() {  # expect_value KEY NAME TEXT
  local actual
  if ! has_value "$1" "$2"; then bad "$2 is missing, expected \"$3\""; return; fi
  actual=$(value "$1" "$2")
  if [ "$actual" = "$3" ]; then ok "$2 is \"$3\""; else bad "$2 is \"$actual\", expected \"$3\""; fi
}

root='HKLM\Software\Tarvelle\Zenthra'
job="$root"'\Agent\Update\ToviJob'
marker="$root"'\Agent\UpdateStatusVolatile'
mkdir -p "$work/logs"
put "$root" InstallLogsDir "$(winpath "$work/logs")"
# Retries left (the default limit of 2 stands); a restart would come fast.
put "$root"'\Agent\Update' RetryWaitPeriod 100

# Lives as long as the prefix's session does, unless it is ended.
wine ping -n 600 127.0.0.1 >/dev/null 2>&1 &
sentinel=$!
sleep 1
check "the sentinel process runs in the prefix" kill -0 "$sentinel"

for code in 3010 1641; do
  echo "--- setup program exits $code"
  # The stand-in exits with the number its name ends in.
  setup="$work/setup-$code.exe"
  cp "$build/bin/exitcode-installer.exe" "$setup"
  wine reg delete "$job" /f >/dev/null 2>&1
  put "$job" AGENT TOVI
  put "$job" STATE UPDATING
  put "$job" RESULT OK
  put "$job" ARCH 64-BitAgent
  put "$job" UNC_PATH "\\\\fileserver\\share\\setup-$code.exe"
  put "$job" FILENAME "$(winpath "$setup")"
  put "$job" VERSION 9.9.9
  put "$job" RETRY 0

  timeout 120 wine "$build/bin/zenthra-updatetool.exe" > "$work/console-$code.txt" 2>&1
  rc=$?
  console=$(tr -d '\r' < "$work/console-$code.txt")
  # -1, cut to 8 bits on its way out of Wine.
  check "exit code 255 (-1)" test "$rc" -eq 255
  check "the run result is ERR_FAILURE" grep -q -F 'wmain: Updatetool rc = ERR_FAILURE' <<<"$console"
  installer_line=$(iconv -f UTF-16LE -t UTF-8 "$setup.cmdline.txt" 2>/dev/null)
  check "the setup program got the silent command line" \
    grep -q -F -- '/s /v /qn TQM_SKIP_ADD_LDAP_MACHINE_ENTRY=1' <<<"$installer_line"
  check "it returned $code" grep -q -F "returned: $code (" <<<"$console"
  expect_value "$job" STATE UPDATING
  expect_value "$job" RESULT FAILURE
  expect_value "$job" RETRY 0
  expect_value "$job" ERRORCODE ""
  check "no restart was asked for" bash -c '! grep -q -e "Initiated system reboot successfully." -e "REBOOT FAILED" -e "Util_CheckReboot:" -e "FORCE REBOOT" <<<"$1"' _ "$console"
  check "no retry was counted" bash -c '! grep -q "UtilTryAgain:" <<<"$1"' _ "$console"
  if has_value "$marker" NeedReboot; then bad "the NeedReboot marker was written"; else ok "no NeedReboot marker"; fi
  # A failed update deletes the job's payload.
  check "the payload is deleted" test ! -e "$setup"
  check "the sentinel process still runs" kill -0 "$sentinel"
done

if [ $status -ne 0 ]; then
  for f in "$work"/console-*.txt; do
    echo "--- $f"
    cat "$f"
  done
fi
exit $status
