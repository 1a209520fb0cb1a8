#!/bin/bash
# The preflight's disk check looks at the drive of the tool's current
# directory and wants 300 MiB (314572800 bytes) free on it. The lab gives
# the prefix a drive T: on a file system of exactly 300 MiB (tmpfs), starts
# the tool there, and takes away one block between the two runs:
#   1. exactly 314572800 bytes free: enough, the check passes;
#   2. 4096 bytes less: too little, -12, and the checks behind it (share
#      path, rules, reboot keys) don't run although each would fail.
# Mounting needs root; without it the test reports itself skipped (77).
#   preflight_disk_test.sh BUILD
set -uo pipefail
. "$(dirname "$0")/throwaway_lab.sh"

probe=$(mktemp -d)
if ! mount -t tmpfs -o size=1m zt-probe "$probe" 2>/dev/null; then
  rmdir "$probe"
  echo "SKIPPED: a small file system for the disk check needs mount -t tmpfs (root)"
  exit 77
fi
umount "$probe" && rmdir "$probe"

lab_extra_close() {
  if [ -n "${small:-}" ] && mountpoint -q "$small" && ! umount "$small"; then
    echo "FAILED: could not unmount $small"
    exit 1
  fi
  rm -f "$prefix/dosdevices/t:"
}
lab_open "${1:?usage: preflight_disk_test.sh BUILD}" preflight-disk

small="$work/small"
mkdir -p "$small" "$work/logs"
if ! mount -t tmpfs -o size=300m zt-preflight-disk "$small"; then
  echo "FAILED: could not mount the small file system"
  exit 1
fi
ln -sfn "$small" "$prefix/dosdevices/t:"
free_bytes() { stat -f -c '%f %S' "$small" | awk '{ print $1 * $2 }'; }

new_root='HKLM\Software\Tarvelle\Zenthra'
job="$new_root"'\Agent\Update\DiskJob'
telemetry="$work/logs/updatetool/UpdateToolTelemetryData.json"
put "$job" AGENT NONE
put "$job" VERSION 4.2.0
put "$job" URL https://localhost:1/agent-4.2.0.msi
put "$job" OPTIONS PREFLIGHTCHECK_ENABLED=1
put "$new_root" InstallLogsDir "$(winpath "$work/logs")"

# --- 1. Exactly the threshold -------------------------------------------------------------
case_begin "T: with exactly 314572800 bytes free"
put "$job" STATE DOWNLOAD
put "$job" RETRY 1
check "the file system has exactly 300 MiB free ($(free_bytes))" test "$(free_bytes)" = 314572800
run_tool "$small" run1
check "the run ended with ERR_PREFLIGHTCHECK_OK (247 = -9 & 255; got $run_rc)" test "$run_rc" -eq 247
check "the drive's figures, then the checks behind" in_order \
  "App::isDiskspaceSufficientForUpdate: current directory =  [T:\\]" \
  "App::isDiskspaceSufficientForUpdate: Total Disk space= [0] GB, Free disk space = [0] GB" \
  "App::isRebootPending: checking registry keys for reboot pending" \
  "Util_UpdateDone: Updating state for result 'ERR_PREFLIGHTCHECK_OK', legacy workflow:'0' " \
  "wmain: Updatetool rc = ERR_PREFLIGHTCHECK_OK"
check "no complaint about the space" lacks_prefix "App::isDiskspaceSufficientForUpdate: Insufficient"
check "the run left the drive as it was" test "$(free_bytes)" = 314572800
expect_value "$job" STATE DONE
expect_value "$job" RESULT PREFLIGHTCHECK_OK
expect_value "$job" ERRORCODE ""
expect_value "$job" RETRY 0
expect_value "$job" PreflightCheckComplete 0x1
case_end

# --- 2. One block less, and every later check would fail too ---------------------------------
case_begin "T: with 314568704 bytes free, a bad share path, a REBOOT rule and a pending reboot"
head -c 4096 /dev/zero > "$small/filler"
check "the file system has one block less free ($(free_bytes))" test "$(free_bytes)" = 314568704
put "$job" STATE DOWNLOAD
put "$job" RETRY 1
put "$job" UNC_PATH '\\fileserver\share\no-such-installer.msi'
# The first run's mark; this run must not set it again.
drop_value "$job" PreflightCheckComplete
make_key 'HKLM\Software\ZenthraPreflightLab\agent'
make_key 'HKLM\Software\Kesmarc, Inc.\Kesmarc TQM\Agent\PreflightChecks\restart-first'
put "$new_root"'\Agent\PreflightChecks\restart-first' KeyPath 'HKLM\Software\ZenthraPreflightLab\agent'
put "$new_root"'\Agent\PreflightChecks\restart-first' KeyPresentAction REBOOT
make_key 'HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\WindowsUpdate\Auto Update\RebootRequired'
run_tool "$small" run2
check "the run ended with ERR_PREFLIGHTCHECK_INSUFFICIENT_DISK (244 = -12 & 255; got $run_rc)" test "$run_rc" -eq 244
check "its lines, in order" in_order \
  "App::isWindowsUpdateInProgress: Windows updates are not running at this time" \
  "App::isDiskspaceSufficientForUpdate: current directory =  [T:\\]" \
  "App::isDiskspaceSufficientForUpdate: Total Disk space= [0] GB, Free disk space = [0] GB" \
  "App::isDiskspaceSufficientForUpdate: Insufficient disk space, disk space = [299] MB" \
  "App::performPreflightChecks: Disk space is not suffcient" \
  "Util_UpdateDone: Updating state for result 'ERR_PREFLIGHTCHECK_INSUFFICIENT_DISK', legacy workflow:'0' " \
  "UtilManageUpdateState: Update key: DiskJob new state: DONE result: PREFLIGHTCHECK_FAILURE" \
  "wmain: Updatetool rc = ERR_PREFLIGHTCHECK_INSUFFICIENT_DISK"
check "the share path is not tested" lacks_prefix "App::isValidUNCPath:"
check "the rules are not read" lacks_prefix "App::performRegistryBasedChecks:"
check "the reboot keys are not looked at" lacks_prefix "App::isRebootPending:"
check "no restart" lacks_prefix "Initiated system reboot"
expect_value "$job" STATE DONE
expect_value "$job" RESULT PREFLIGHTCHECK_FAILURE
expect_value "$job" ERRORCODE PREFLIGHT_ERR_INSUFFICIENT_DISKSPACE
expect_value "$job" ERRORDESC ""
# A failed check other than a pending reboot leaves the count alone.
expect_value "$job" RETRY 1
expect_absent "$job" PreflightCheckComplete
check "the last telemetry entry is the run's" last_entry_is "$telemetry" \
  '{"updatedGUID": "DiskJob", "type": "NONE", "fileName": "", "version": "4.2.0", "status": "DONE",
    "attempt": 1, "result": "PREFLIGHTCHECK_FAILURE", "errorCode": "PREFLIGHT_ERR_INSUFFICIENT_DISKSPACE"}'
case_end

exit $status
