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
. "$(dirname "$0")/throwaway_lab.sh"
sentinel=
lab_extra_close() { if [ -n "$sentinel" ]; then kill "$sentinel" 2>/dev/null; fi; }
lab_open "${1:?usage: tovi_no_restart_test.sh BUILD}" tovi-norestart

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
  case_begin "setup program exits $code"
  setup="$work/setup-$code.exe"
  place_stand_in "$setup"
  drop_key "$job"
  put "$job" AGENT TOVI
  put "$job" STATE UPDATING
  put "$job" RESULT OK
  put "$job" ARCH 64-BitAgent
  put "$job" UNC_PATH "\\\\fileserver\\share\\setup-$code.exe"
  put "$job" FILENAME "$(winpath "$setup")"
  put "$job" VERSION 9.9.9
  put "$job" RETRY 0

  run_tool "$work" "console-$code"
  # -1, cut to 8 bits on its way out of Wine.
  check "exit code 255 (-1)" test "$run_rc" -eq 255
  check "the run result is ERR_FAILURE" grep -q -F 'wmain: Updatetool rc = ERR_FAILURE' <<<"$console"
  check "the setup program got the silent command line" \
    grep -q -F -- '/s /v /qn TQM_SKIP_ADD_LDAP_MACHINE_ENTRY=1' <<<"$(stand_in_cmdline "$setup")"
  check "it returned $code" grep -q -F "returned: $code (" <<<"$console"
  expect_value "$job" STATE UPDATING
  expect_value "$job" RESULT FAILURE
  expect_value "$job" RETRY 0
  expect_value "$job" ERRORCODE ""
  check "no restart was asked for" bash -c '! grep -q -e "Initiated system reboot successfully." -e "REBOOT FAILED" -e "Util_CheckReboot:" -e "FORCE REBOOT" <<<"$1"' _ "$console"
  check "no retry was counted" bash -c '! grep -q "UtilTryAgain:" <<<"$1"' _ "$console"
  expect_absent "$marker" NeedReboot
  # A failed update deletes the job's payload.
  check "the payload is deleted" test ! -e "$setup"
  check "the sentinel process still runs" kill -0 "$sentinel"
  case_end
done

exit $status
