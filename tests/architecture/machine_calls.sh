#!/bin/bash
# Fails when a layer of the tool's logic calls Windows itself instead of
# asking a platform service. Reads the layers' libraries, so a call counts
# however it got there (a macro, an inline function of a header).
#   machine_calls.sh NM IMPORT_LIB_DIR LAYER_LIBRARY...
set -euo pipefail
nm=$1
libdir=$2
shift 2

# The system DLLs whose exports touch the machine, and the C runtime's calls
# that do the same (files, processes, environment, clock).
dlls="kernel32 kernelbase advapi32 user32 gdi32 shell32 shlwapi ole32 oleaut32 msi mpr bcrypt ncrypt crypt32
      version winhttp wininet ws2_32 iphlpapi netapi32 userenv wtsapi32 psapi dbghelp secur32 ntdll setupapi
      rpcrt4 urlmon cfgmgr32 powrprof wevtapi wintrust"
runtime="fopen _wfopen _wfopen_s _open _wopen _wsopen_s remove _wremove rename _wrename _unlink _wunlink _mkdir
         _wmkdir _rmdir _wrmdir system _wsystem getenv _wgetenv _wputenv _putenv _time64 _time32 time _ftime64
         _ftime64_s _localtime64 _localtime64_s _gmtime64_s clock _findfirst64 _wfindfirst64 _spawnl _wspawnl
         _wspawnv _execl _wexecl _beginthreadex"
# They ask nothing of the machine: the calling thread's error slot, and the
# constant that names the current process.
allowed=" GetLastError SetLastError GetCurrentProcess "

machine=$(mktemp)
trap 'rm -f "$machine"' EXIT
for dll in $dlls; do
  lib="$libdir/lib$dll.a"
  [ -f "$lib" ] || continue
  "$nm" -g --defined-only "$lib" 2>/dev/null | awk '{print $NF}' | sed -n 's/^__imp_//p'
done > "$machine"
printf '%s\n' $runtime >> "$machine"
sort -u -o "$machine" "$machine"
if [ "$(wc -l < "$machine")" -lt 1000 ]; then
  echo "too few system exports found in $libdir: the check would prove nothing" >&2
  exit 2
fi

status=0
for library in "$@"; do
  calls=$("$nm" -u "$library" 2>/dev/null | awk '{print $NF}' | sed 's/^__imp_//' | sort -u | comm -12 - "$machine")
  for call in $calls; do
    case "$allowed" in *" $call "*) continue ;; esac
    echo "$(basename "$library"): calls $call directly; ask a platform service instead"
    status=1
  done
done
[ $status -eq 0 ] && echo "no layer of the logic calls the machine directly ($# libraries)"
exit $status
