#!/bin/bash
# A job whose installer asks for a restart (exit code 3010). The run must
# have saved the job's state, its telemetry entry and the volatile
# "NeedReboot" marker before it restarts the machine: here the Wine prefix of
# this test alone, since a restart ends every process of a prefix. The marker
# stands until that session ends and is gone after it; the state stays.
#   restart_test.sh BUILD
set -uo pipefail
. "$(dirname "$0")/throwaway_lab.sh"
lab_open "${1:?usage: restart_test.sh BUILD}" restart

mkdir -p "$work/logs"
place_stand_in "$work/setup-3010.exe"
telemetry="$work/logs/updatetool/UpdateToolTelemetryData.json"

job='HKLM\Software\Tarvelle\Zenthra\Agent\Update\RestartJob'
marker='HKLM\Software\Tarvelle\Zenthra\Agent\UpdateStatusVolatile'
put "$job" AGENT OTHER
put "$job" STATE UPDATING
put "$job" ARCH 64-BitAgent
put "$job" UNC_PATH '\\fileserver\share\setup-3010.exe'
put "$job" FILENAME "$(winpath "$work/setup-3010.exe")"
put "$job" VERSION 9.9.9
put "$job" RETRY 0
put 'HKLM\Software\Tarvelle\Zenthra' InstallLogsDir "$(winpath "$work/logs")"
put 'HKLM\Software\Tarvelle\Zenthra\Agent\Update' RetryWaitPeriod 100

# The restart ends the tool with every other process of the prefix.
run_tool "$work" console
check "the installer got the silent command line" \
  grep -q -F -- '/s /v /qn' <<<"$(stand_in_cmdline "$work/setup-3010.exe")"
expect_value "$job" STATE DONE
expect_value "$job" RESULT OK
expect_value "$job" RETRY 0
check "the agent's success is logged" grep -q 'App::Update: agent update succeeded' <<<"$console"
check "the restart was asked for after the state was saved" in_order \
  "UtilManageUpdateState: Update key: RestartJob new state: DONE result: OK" \
  "Initiated system reboot successfully."
check "the telemetry entry was written" telemetry_has "$telemetry" '"updatedGUID" : "RestartJob"'
check "with the state DONE" telemetry_has "$telemetry" '"status" : "DONE"'
expect_value "$marker" NeedReboot 1

# The end of the prefix's session is the end of the boot the marker belongs to.
lab_restart
expect_absent "$marker" NeedReboot
expect_value "$job" STATE DONE

case_end
exit $status
