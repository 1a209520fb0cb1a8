#!/bin/bash
# Prints the benchmark figures of a build tree (figures, not pass/fail).
#   bench.sh BUILD        BENCH_RUNS=n sets the start-up runs (default 20)
# The lab must be up: `make bench` prepares it before and stops it after.
set -euo pipefail
build=$(cd "${1:?usage: bench.sh BUILD}" && pwd)
runs=${BENCH_RUNS:-20}

for exe in zenthra-updatetool.exe trivial.exe bench_startup.exe bench_toollog.exe; do
  if [ ! -f "$build/bin/$exe" ]; then
    echo "bench: $build/bin/$exe is missing; build first" >&2
    exit 1
  fi
done

# The Windows programs print CR LF.
echo "== Start-up: the tool with no job against a program that does nothing"
"$build/wine-run" "$build/bin/bench_startup.exe" "$runs" | tr -d '\r'
echo
echo "== Tool log: cost per line as the log grows"
"$build/wine-run" "$build/bin/bench_toollog.exe" | tr -d '\r'

# Benchmarks of single parts, when the build has them.
if [ -f "$build/bin/bench_propertybag.exe" ]; then
  echo
  echo "== PropertyBag: parse throughput"
  "$build/wine-run" "$build/bin/bench_propertybag.exe" | tr -d '\r'
fi
if [ -f "$build/bin/bench_telemetry.exe" ]; then
  echo
  echo "== Telemetry: end-of-run step against files of growing size"
  "$build/wine-run" "$build/bin/bench_telemetry.exe" | tr -d '\r'
fi
