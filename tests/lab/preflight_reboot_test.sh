#!/bin/bash
# A preflight check that finds a reboot pending restarts the machine, twice
# at most for one job: on its first and second try the job goes back to READY
# with "PREFLIGHTCHECK_INPROGRESS" and the machine restarts at once, without
# the retry wait; on the third try the job ends in DONE with
# "PREFLIGHTCHECK_FAILURE", the count starts afresh and nothing restarts.
# Three runs with three reasons: a product's component list, a rule of the
# registry, the system's update key. Between runs the prefix's session ends,
# as the restart would end it.
#   preflight_reboot_test.sh BUILD
set -uo pipefail
. "$(dirname "$0")/throwaway_lab.sh"
lab_open "${1:?usage: preflight_reboot_test.sh BUILD}" preflight-reboot

new_root='HKLM\Software\Tarvelle\Zenthra'
legacy_root='HKLM\Software\Kesmarc, Inc.\Kesmarc TQM'
job="$new_root"'\Agent\Update\PreflightJob'
marker="$new_root"'\Agent\UpdateStatusVolatile'
telemetry="$work/logs/updatetool/UpdateToolTelemetryData.json"
components='HKLM\SOFTWARE\Tarvelle\NeedReboot'
auto_update='HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\WindowsUpdate\Auto Update\RebootRequired'
watched='HKLM\Software\ZenthraPreflightLab\agent'

mkdir -p "$work/logs" "$work/cwd"
put "$job" AGENT NONE
put "$job" VERSION 4.2.0
put "$job" URL https://localhost:1/agent-4.2.0.msi
put "$job" OPTIONS PREFLIGHTCHECK_ENABLED=1
put "$job" STATE DOWNLOAD
put "$job" RETRY 0
put "$new_root" InstallLogsDir "$(winpath "$work/logs")"
# A restart after an ordinary failure waits RETRY periods first; this one
# must not wait at all.
put "$new_root"'\Agent\Update' RetryWaitPeriod 60000

lines_of_a_restart() {  # lines_of_a_restart RETRY-AFTER
  check "the decision, the saved state and the restart, in order" in_order \
    "Util_UpdateDone: Updating state for result 'ERR_PREFLIGHTCHECK_REBOOT', legacy workflow:'0' " \
    "UtilTryAgain: updating retry: $1, max attempt allowed: 2" \
    "UtilManageUpdateState: Update key: PreflightJob current state: READY result:PREFLIGHTCHECK_INPROGRESS" \
    "UtilManageUpdateState: Update key: PreflightJob new state: READY result: PREFLIGHTCHECK_INPROGRESS" \
    "Initiated system reboot successfully."
  check "no line says the retries ran out" lacks_prefix "UtilTryAgain: exceeded retry attempts"
  check "no wait before the restart" lacks_prefix "Util_CheckReboot:"
  check "the restart came at once ($run_ms ms), not after RETRY periods of a minute" test "$run_ms" -lt 60000
  check "nothing was fetched" lacks_prefix "Util_DoDownload:"
  expect_value "$job" STATE READY
  expect_value "$job" RESULT PREFLIGHTCHECK_INPROGRESS
  expect_value "$job" ERRORCODE ""
  expect_value "$job" ERRORDESC ""
  expect_value "$job" RETRY "$1"
  expect_absent "$job" PreflightCheckComplete
  expect_value "$marker" NeedReboot 1
  check "telemetry holds $2 entries" test "$(telemetry_count "$telemetry")" = "$2"
  check "the last entry is the run's" last_entry_is "$telemetry" \
    '{"updatedGUID": "PreflightJob", "type": "NONE", "fileName": "", "version": "4.2.0", "status": "READY",
      "attempt": '"$1"', "result": "PREFLIGHTCHECK_INPROGRESS"}'
}

# --- 1. First try: a component of the product needs a reboot ------------------------
case_begin "RETRY 0, Tarvelle components waiting for a reboot"
put "$components" Components agent
run_tool "$work/cwd" run1
check "the reason is logged" in_order \
  "App::performPreflightChecks: begin.." \
  "App::isWindowsUpdateInProgress: Windows updates are not running at this time" \
  "App::isRebootPending: checking registry keys for reboot pending" \
  "App::isRebootPending: Tarvelle components <agent> need a reboot"
lines_of_a_restart 1 1
lab_restart
# The session ended, and the marker with it.
expect_absent "$marker" NeedReboot
expect_value "$job" STATE READY
case_end

# --- 2. Second try: a rule asks for a reboot --------------------------------------------
case_begin "RETRY 1, a rule with KeyPresentAction REBOOT"
drop_key "$components"
make_key "$watched"
# A job under the new root takes rule names from the legacy root, values
# from the new one.
make_key "$legacy_root"'\Agent\PreflightChecks\restart-first'
put "$new_root"'\Agent\PreflightChecks\restart-first' KeyPath "$watched"
put "$new_root"'\Agent\PreflightChecks\restart-first' KeyPresentAction REBOOT
put "$job" STATE DOWNLOAD
run_tool "$work/cwd" run2
check "the rule is logged" in_order \
  "App::performRegistryBasedChecks: processing preflight check key [restart-first]" \
  "App::performRegistryBasedChecks: preflight check [restart-first], action [REBOOT] is added" \
  "App::performPreflightChecks: preflight final actions: [REBOOT]"
check "the reboot keys are not looked at" lacks_prefix "App::isRebootPending:"
lines_of_a_restart 2 2
lab_restart
expect_absent "$marker" NeedReboot
case_end

# --- 3. Third try: over the limit -------------------------------------------------------------
case_begin "RETRY 2, the system's update asks for a reboot"
drop_key "$new_root"'\Agent\PreflightChecks'
drop_key "$legacy_root"'\Agent\PreflightChecks'
make_key "$auto_update"
put "$job" STATE DOWNLOAD
run_tool "$work/cwd" run3
# The 32-bit code -11 arrives cut to 8 bits.
check "the run ended with ERR_PREFLIGHTCHECK_REBOOT (245 = -11 & 255; got $run_rc)" test "$run_rc" -eq 245
check "its lines, in order" in_order \
  "App::isRebootPending: Windows Auto Update Reboot is pending" \
  "Util_UpdateDone: Updating state for result 'ERR_PREFLIGHTCHECK_REBOOT', legacy workflow:'0' " \
  "UtilTryAgain: exceeded retry attempts: 3, max attempt allowed: 2" \
  "UtilTryAgain: updating retry: 3, max attempt allowed: 2" \
  "UtilManageUpdateState: Update key: PreflightJob current state: DONE result:PREFLIGHTCHECK_FAILURE" \
  "UtilManageUpdateState: Update key: PreflightJob new state: DONE result: PREFLIGHTCHECK_FAILURE" \
  "wmain: Updatetool rc = ERR_PREFLIGHTCHECK_REBOOT"
check "no restart" lacks_prefix "Initiated system reboot"
check "no wait" lacks_prefix "Util_CheckReboot:"
expect_value "$job" STATE DONE
expect_value "$job" RESULT PREFLIGHTCHECK_FAILURE
expect_value "$job" ERRORCODE PREFLIGHT_ERR_REBOOT_PENDING
expect_value "$job" ERRORDESC ""
expect_value "$job" RETRY 0
expect_absent "$marker" NeedReboot
check "telemetry holds 3 entries" test "$(telemetry_count "$telemetry")" = 3
check "the last entry is the run's" last_entry_is "$telemetry" \
  '{"updatedGUID": "PreflightJob", "type": "NONE", "fileName": "", "version": "4.2.0", "status": "DONE",
    "attempt": 0, "result": "PREFLIGHTCHECK_FAILURE", "errorCode": "PREFLIGHT_ERR_REBOOT_PENDING"}'
case_end

exit $status
