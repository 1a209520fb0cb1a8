#!/bin/bash
# The Wine test lab of one build tree.
#   lab.sh prepare PREFIX   make (or reuse) the prefix, start a persistent
#                           wineserver and warm it up
#   lab.sh stop PREFIX      end the prefix's wineserver and its processes
#
# The prefix lives in BUILD (BUILD/wineprefix for the tests; the demo, the
# benchmarks and the restart tests make their own beside it): the lab's share
# \\fileserver\share is BUILD/lab/share, and the lab's network provider is
# BUILD/bin/mpr.dll.
set -euo pipefail
cmd=${1:?usage: lab.sh prepare|stop PREFIX}
export WINEPREFIX=${2:?usage: lab.sh prepare|stop PREFIX}
export WINEARCH=win64
here=$(cd "$(dirname "$0")" && pwd)
. "$here/wine-env.sh"

# Bump when the way a prefix is made changes, so old prefixes are remade.
LAB_VERSION=2
marker="$WINEPREFIX/.zt-lab-ready"

# Wine's server and services outlive the commands that start them, so none
# of them may inherit the lock's descriptor (9>&-), or the lock stays held.
make_prefix() {
  wineserver -k >/dev/null 2>&1 9>&- || true
  rm -rf "$WINEPREFIX"
  mkdir -p "$(dirname "$WINEPREFIX")"
  wine wineboot --init >/dev/null 2>&1 9>&-
  wine winecfg /v win10 >/dev/null 2>&1 9>&-
  # Wine's own share calls answer 1222 to everything; the tool, and only the
  # tool, takes the lab's provider from system32 before Wine's.
  wine reg add 'HKCU\Software\Wine\AppDefaults\zenthra-updatetool.exe\DllOverrides' \
    /v mpr /t REG_SZ /d native,builtin /f >/dev/null 2>&1 9>&-
  wineserver -w 9>&-
  echo "$LAB_VERSION" > "$marker"
}

# \\fileserver\share through the prefix's UNC mapping, and the provider,
# when it has been built.
lab_share() {
  local build link provider installed
  build=$(dirname "$WINEPREFIX")
  link="$WINEPREFIX/dosdevices/unc/fileserver/share"
  mkdir -p "$build/lab/share" "$(dirname "$link")"
  ln -sfn "$build/lab/share" "$link"
  provider="$build/bin/mpr.dll"
  installed="$WINEPREFIX/drive_c/windows/system32/mpr.dll"
  if [ -f "$provider" ] && ! cmp -s "$provider" "$installed"; then
    cp "$provider" "$installed"
  fi
}

case "$cmd" in
  prepare)
    # Serialise makers: ctest may start several wine-run at once.
    mkdir -p "$(dirname "$WINEPREFIX")"
    exec 9>"$WINEPREFIX.lock"
    flock 9
    if [ ! -f "$marker" ] || [ "$(cat "$marker")" != "$LAB_VERSION" ] || [ ! -f "$WINEPREFIX/system.reg" ]; then
      echo "lab: making Wine prefix $WINEPREFIX"
      make_prefix
    fi
    lab_share
    exec 9>&-
    # A persistent server spares every test the ~2.4 s wait for its exit.
    # One left running (an interrupted run, a program started by hand) may
    # not be persistent and holds that run's processes: it makes way.
    if ! wineserver -p </dev/null >/dev/null 2>&1; then
      echo "lab: replacing the Wine server already running for $WINEPREFIX"
      wineserver -k >/dev/null 2>&1 || true
      wineserver -w >/dev/null 2>&1 || true
      wineserver -p </dev/null >/dev/null 2>&1
    fi
    wine cmd /c exit 0 </dev/null >/dev/null 2>&1
    ;;
  stop)
    wineserver -k >/dev/null 2>&1 || true
    ;;
  *)
    echo "usage: lab.sh prepare|stop PREFIX" >&2
    exit 2
    ;;
esac
