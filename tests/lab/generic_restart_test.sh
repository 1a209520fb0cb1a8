#!/bin/bash
# Jobs for a product of "AGENT" "OTHER" whose runs end in a restart of the
# machine, which ends every process of a Wine prefix: so they run from
# outside Wine, in a prefix of their own that is thrown away afterwards.
#   1. The setup program fails (1603) with retries left: the job waits in
#      WAIT with "PROGRESS" and the installer's error, and the restart comes
#      after a wait of one retry period.
#   2. The setup program succeeds but asks for a restart (3010): the job is
#      DONE with "OK" and the restart comes at once.
# Between the two the prefix's session ends, as a restart would end it.
#   generic_restart_test.sh BUILD
set -uo pipefail
. "$(dirname "$0")/throwaway_lab.sh"
lab_open "${1:?usage: generic_restart_test.sh BUILD}" generic-restart

root='HKLM\Software\Tarvelle\Zenthra'
job="$root"'\Agent\Update\GenericJob'
marker="$root"'\Agent\UpdateStatusVolatile'

# One job under UPDATING whose installer is the stand-in, copied as
# FOLDER/NAME into the case's own folder.
#   run_case NAME FOLDER RETRYWAITMS
run_case() {
  local name=$1 folder=$2 wait=$3
  case_dir="$work/${name%.exe}"
  rm -rf "$case_dir"
  mkdir -p "$case_dir/logs" "$case_dir/$folder"
  setup_unix="$case_dir/$folder/$name"
  place_stand_in "$setup_unix"
  setup=$(winpath "$setup_unix")
  telemetry="$case_dir/logs/updatetool/UpdateToolTelemetryData.json"
  drop_key "$root"
  put "$job" AGENT OTHER
  put "$job" STATE UPDATING
  put "$job" RESULT OK
  put "$job" ARCH 64-BitAgent
  put "$job" UNC_PATH "\\\\fileserver\\share\\$name"
  put "$job" FILENAME "$setup"
  put "$job" VERSION 3.1.0
  put "$job" RETRY 0
  put "$root" InstallLogsDir "$(winpath "$case_dir/logs")"
  # MAXDOWNLOADANDUPGRADERETRY stays unset: the default of two retries.
  put "$root"'\Agent\Update' RetryWaitPeriod "$wait"

  run_tool "$case_dir" "${name%.exe}"
  installer_line=$(stand_in_cmdline "$setup_unix")
}

# Seconds of the day of a console line's time stamp "YYYY-MM-DD hh.mm.ss: ".
stamp_of() {
  grep -F -- "$1" <<<"$console" | head -n 1 |
    awk '{ split($2, t, "."); sub(/:$/, "", t[3]); print t[1] * 3600 + t[2] * 60 + t[3] }'
}
entry_has() { telemetry_has "$telemetry" "$1"; }

# --- 1. 1603 with retries left -------------------------------------------------
case_begin "setup-1603.exe, no attempt made yet, two retries allowed"
run_case setup-1603.exe setup 3000
check "the installer got the silent command line" test "$installer_line" = "$setup /s /v /qn"
expect_value "$job" STATE WAIT
expect_value "$job" RESULT PROGRESS
expect_value "$job" FILENAME "$setup"
expect_value "$job" ERRORCODE ERROR_INSTALL_FAILURE
desc=$(value "$job" ERRORDESC)
check "ERRORDESC holds the code and the system's text: \"$desc\"" \
  bash -c '[[ $1 == "1603 ("?*")" ]]' _ "$desc"
expect_value "$job" RETRY 1
check "the payload stays for the next attempt" test -f "$setup_unix"
check "the failure, the reboot decision, the saved state and the restart, in order" in_order \
  "App::Update: agent reboot required" \
  "App::Update: no Launch" \
  "App::Update: Error code and description: ERROR_INSTALL_FAILURE, $desc" \
  "Util_UpdateDone: agent update result: ERR_REBOOT" \
  "UtilTryAgain: updating retry: 1, max attempt allowed: 2" \
  "Util_UpdateDone: FORCE REBOOT" \
  "UtilManageUpdateState: Update key: GenericJob current state: UPDATING result:PROGRESS" \
  "UtilManageUpdateState: Update key: GenericJob new state: WAIT result: PROGRESS" \
  "Util_CheckReboot: wait for a while" \
  "Util_CheckReboot: done waiting" \
  "Initiated system reboot successfully."
check "the run result is ERR_REBOOT (-7; Linux saw $run_rc)" grep -q -x -F "wmain: Updatetool rc = ERR_REBOOT" <<<"$messages"
check "no line says the retries ran out" lacks_prefix "UtilTryAgain: exceeded retry attempts: 1, max attempt allowed: 2"
waited=$(( $(stamp_of "Util_CheckReboot: done waiting") - $(stamp_of "Util_CheckReboot: wait for a while") ))
check "the restart waited one retry period (3 s; time stamps $waited s apart)" test "$waited" -ge 3
check "the run lasted at least the wait ($run_ms ms)" test "$run_ms" -ge 3000
check "the telemetry entry was written" entry_has '"updatedGUID" : "GenericJob"'
check "with the state WAIT" entry_has '"status" : "WAIT"'
check "with the result PROGRESS" entry_has '"result" : "PROGRESS"'
check "with the attempt 1" entry_has '"attempt" : 1,'
check "with the installer's error" entry_has '"errorCode" : "ERROR_INSTALL_FAILURE"'
expect_value "$marker" NeedReboot 1

# The end of the session is the restart the marker was waiting for.
lab_restart
expect_absent "$marker" NeedReboot
expect_value "$job" STATE WAIT
case_end

# --- 2. 3010 -----------------------------------------------------------------------
case_begin "setup-3010.exe in a folder with a blank"
run_case setup-3010.exe "lab setup" 60000
check "the installer got the quoted silent command line" test "$installer_line" = "\"$setup\" /s /v /qn"
expect_value "$job" STATE DONE
expect_value "$job" RESULT OK
expect_value "$job" ERRORCODE ""
expect_value "$job" ERRORDESC ""
expect_value "$job" RETRY 0
check "the payload is gone after the good install" test ! -e "$setup_unix"
check "success, the saved state and the restart, in order" in_order \
  "Agent::LaunchHelper: launching: \"$setup\" /s /v /qn" \
  "App::Update: agent update succeeded" \
  "Util_UpdateDone: agent update result: ERR_NOAGENT" \
  "UtilManageUpdateState: Update key: GenericJob new state: DONE result: OK" \
  "Util_CheckReboot: wait for a while" \
  "Util_CheckReboot: done waiting" \
  "Initiated system reboot successfully."
check "the run result is ERR_NOAGENT (-4; Linux saw $run_rc)" grep -q -x -F "wmain: Updatetool rc = ERR_NOAGENT" <<<"$messages"
check "no reboot decision of the state machine" lacks_prefix "Util_UpdateDone: FORCE REBOOT"
# The retry count is 0 after a good install, so the wait is nothing, though
# the retry period is a minute.
check "the restart came without the retry period's wait ($run_ms ms)" test "$run_ms" -lt 60000
check "the telemetry entry has the state DONE" entry_has '"status" : "DONE"'
check "and no error" bash -c '! grep -q "\"errorCode\"" "$1"' _ "$telemetry"
expect_value "$marker" NeedReboot 1
case_end

exit $status
