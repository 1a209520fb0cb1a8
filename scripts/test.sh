#!/bin/bash
# Runs the unit and integration tests of a build tree in its lab: prepares
# the lab, runs CTest, and stops the lab however the run ends, Ctrl-C
# included, so that no Wine server of the lab is left behind. Exits with
# CTest's exit code.
#   test.sh BUILD PREFIX [JOBS]     JOBS: tests run at once (default nproc)
set -euo pipefail
usage="usage: test.sh BUILD PREFIX [JOBS]"
here=$(cd "$(dirname "$0")" && pwd)
build=$(realpath "${1:?$usage}")
prefix=$(realpath -m "${2:?$usage}")
jobs=${3:-$(nproc)}

stop_lab() {
  trap '' INT TERM
  # The HTTPS servers stop with the tests that started them; an interrupted
  # run skips that, so they are stopped here too (nothing to do otherwise).
  "$here/../tests/lab/https/https_lab.sh" stop "$build" "$prefix" >/dev/null 2>&1 || true
  "$here/lab.sh" stop "$prefix"
}
trap stop_lab EXIT
# A signal ends the script through its EXIT trap; the status says which.
trap 'exit 130' INT
trap 'exit 143' TERM

"$here/lab.sh" prepare "$prefix"
cd "$build"
ctest --output-on-failure -j "$jobs"
