#!/bin/bash
# Prints the benchmark figures of a build tree (figures, not pass/fail).
#   bench.sh BUILD PREFIX   BENCH_RUNS=n sets the start-up runs (default 20)
# The benchmarks run in a fresh lab of their own in PREFIX, made here and
# stopped and removed however the run ends, Ctrl-C included, together with
# the large files of the run.
set -euo pipefail
usage="usage: bench.sh BUILD PREFIX"
here=$(cd "$(dirname "$0")" && pwd)
build=$(cd "${1:?$usage}" && pwd)
prefix=$(realpath -m "${2:?$usage}")
runs=${BENCH_RUNS:-20}

for exe in zenthra-updatetool.exe trivial.exe bench_startup.exe bench_toollog.exe; do
  if [ ! -f "$build/bin/$exe" ]; then
    echo "bench: $build/bin/$exe is missing; build the target zt_benchmarks first" >&2
    exit 1
  fi
done

big_dir="$build/lab/share/zt-bench"
big_scratch="$build/bench-scratch"
# The benchmarks' own HTTPS lab, beside the tests' one (tests/lab/https).
https_lab="$(dirname "$here")/tests/lab/https/https_lab.sh"
https_dir="$build/lab/https-bench"
clean_up() {
  trap '' INT TERM
  # Its servers go before the Wine lab it trusts its CA in.
  if [ -d "$https_dir" ]; then
    "$https_lab" stop "$build" "$prefix" "$https_dir" >/dev/null || true
  fi
  "$here/lab.sh" stop "$prefix"
  rm -rf "$prefix" "$prefix.lock" "$big_dir" "$big_scratch" "$https_dir"
}
# What an earlier run left behind goes first.
"$here/lab.sh" stop "$prefix"
rm -rf "$prefix"
trap clean_up EXIT
# A signal ends the script through its EXIT trap; the status says which.
trap 'exit 130' INT
trap 'exit 143' TERM
"$here/lab.sh" prepare "$prefix"
export ZT_WINEPREFIX=$prefix

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

# --- 1 GiB payload: the tool's fetch and verification beside Linux tools ---
# A DOWNLOAD run of the tool from \\fileserver\share against cp + sha256sum of
# the same file, the tool's SHA-256 routine against sha256sum, and the tool's
# peak memory during the run. BENCH_BIG=0 skips it; BENCH_BIG_RUNS=n sets the
# rounds (default 3). Each round runs the tool and the Linux tools one right
# after the other, so that the other work on a shared machine weighs on both
# alike; the ratio printed is the median of the rounds' ratios. The 1 GiB
# files go with the lab at the end.
if [ "${BENCH_BIG:-1}" != 0 ] && [ -f "$build/bin/bench_fetch.exe" ] && [ -f "$build/bin/bench_checksum.exe" ]; then
  big_runs=${BENCH_BIG_RUNS:-3}
  rm -rf "$big_dir" "$big_scratch"
  mkdir -p "$big_dir" "$big_scratch"
  payload="$big_dir/payload.bin"
  head -c 1073741824 /dev/urandom > "$payload"
  big_size=$(stat -c %s "$payload")
  big_sum=$(sha256sum "$payload" | cut -d' ' -f1)

  now_ms() { echo $(( $(date +%s%N) / 1000000 )); }
  # "min median" of the numbers on standard input
  min_median() { sort -g | awk '{ v[NR] = $1 } END { m = NR % 2 ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2; print v[1], m }'; }
  field() { tr ' ' '\n' | sed -n "s/^$1=//p"; }
  ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", a / b }'; }

  echo
  echo "== 1 GiB payload: the tool beside Linux tools ($big_runs rounds)"
  fetch_ms=() copy_ms=() fetch_ratio=() peak_kib=0
  check_ms=() sum_ms=() check_ratio=() check_cpu=() sum_cpu=() cpu_ratio=()
  for round in $(seq "$big_runs"); do
    sync
    t0=$(now_ms)
    cp "$payload" "$big_scratch/copy.bin"
    sha256sum "$big_scratch/copy.bin" > /dev/null
    copy_ms+=($(( $(now_ms) - t0 )))
    rm -f "$big_scratch/copy.bin"
    sync
    fetch_out=$("$build/wine-run" "$build/bin/bench_fetch.exe" '\\fileserver\share\zt-bench\payload.bin' \
      "$big_size" "$big_sum" 1 | tr -d '\r')
    line=$(grep '^fetch_ms_min=' <<<"$fetch_out")
    fetch_ms+=($(field fetch_ms_min <<<"$line"))
    kib=$(field peak_ws_kib <<<"$line")
    [ "$kib" -gt "$peak_kib" ] && peak_kib=$kib
    fetch_ratio+=($(ratio "${fetch_ms[-1]}" "${copy_ms[-1]}"))

    t0=$(now_ms)
    cpu=$( { TIMEFORMAT='%3U %3S'; time sha256sum "$payload" > /dev/null; } 2>&1 )
    sum_ms+=($(( $(now_ms) - t0 )))
    sum_cpu+=($(awk -v u="${cpu% *}" -v s="${cpu#* }" 'BEGIN { printf "%d", (u + s) * 1000 }'))
    checksum_out=$("$build/wine-run" "$build/bin/bench_checksum.exe" "Z:${payload//\//\\}" 1 | tr -d '\r')
    if ! grep -q "^sha256 $big_sum\$" <<<"$checksum_out"; then
      echo "bench: the tool's digest differs from sha256sum's ($big_sum)" >&2
      exit 1
    fi
    line=$(grep '^checksum_ms_min=' <<<"$checksum_out")
    check_ms+=($(field checksum_ms_min <<<"$line"))
    check_cpu+=($(field checksum_cpu_ms_min <<<"$line"))
    check_ratio+=($(ratio "${check_ms[-1]}" "${sum_ms[-1]}"))
    cpu_ratio+=($(ratio "${check_cpu[-1]}" "${sum_cpu[-1]}"))
    echo "  round $round: tool fetch ${fetch_ms[-1]} ms, cp + sha256sum ${copy_ms[-1]} ms;" \
      "tool checksum ${check_ms[-1]} ms, sha256sum ${sum_ms[-1]} ms"
  done
  echo "  last round, the tool's side in detail:"
  grep -v -e '^checksum_ms_min=' -e '^sha256 ' <<<"$checksum_out" | sed 's/^/    /'
  grep -v -e '^fetch_ms_min=' -e '^  run ' <<<"$fetch_out" | sed 's/^/    /'

  read -r a_min a_med < <(printf '%s\n' "${fetch_ms[@]}" | min_median)
  read -r b_min b_med < <(printf '%s\n' "${copy_ms[@]}" | min_median)
  read -r _ fetch_r < <(printf '%s\n' "${fetch_ratio[@]}" | min_median)
  read -r c_min c_med < <(printf '%s\n' "${check_ms[@]}" | min_median)
  read -r d_min d_med < <(printf '%s\n' "${sum_ms[@]}" | min_median)
  read -r _ check_r < <(printf '%s\n' "${check_ratio[@]}" | min_median)
  read -r e_min e_med < <(printf '%s\n' "${check_cpu[@]}" | min_median)
  read -r f_min f_med < <(printf '%s\n' "${sum_cpu[@]}" | min_median)
  read -r _ cpu_r < <(printf '%s\n' "${cpu_ratio[@]}" | min_median)

  echo
  printf '%-46s %8s %8s   %s\n' "" "min ms" "med ms" "tool / Linux (median of rounds)"
  printf '%-46s %8d %8d\n' "tool: DOWNLOAD run (copy, size, SHA-256)" "$a_min" "$a_med"
  printf '%-46s %8d %8d   %s  (target <= 1.30)\n' "Linux: cp + sha256sum" "$b_min" "$b_med" "$fetch_r"
  printf '%-46s %8d %8d\n' "tool: Util_ComputeCheckSum, 4096-byte reads" "$c_min" "$c_med"
  printf '%-46s %8d %8d   %s  (target <= 1.20)\n' "Linux: sha256sum" "$d_min" "$d_med" "$check_r"
  printf '%-46s %8d %8d\n' "tool: Util_ComputeCheckSum, processor time" "$e_min" "$e_med"
  printf '%-46s %8d %8d   %s\n' "Linux: sha256sum, processor time" "$f_min" "$f_med" "$cpu_r"
  printf '%-46s %8.1f MiB  (target < 32 MiB)\n' "tool: peak working set during a run" \
    "$(awk -v k="$peak_kib" 'BEGIN { print k / 1024 }')"
fi

# --- 1 GiB payload over HTTPS: the tool and its delivery client beside curl ---
# A DOWNLOAD run of the tool fetching and verifying a 1 GiB payload from the
# lab's nginx (tests/lab/https, started here for the bench's prefix) against
# curl fetching the same URL followed by sha256sum, one right after the other
# in each round; the tool's peak memory during those runs; and a download cut
# at 90 % (the tool ended once its partial file holds that much, while nginx
# sends the rest slowly) finished by the next run, against a whole run.
# BENCH_HTTPS=0 or BENCH_BIG=0 skips it; BENCH_BIG_RUNS=n sets the rounds.
if [ "${BENCH_BIG:-1}" != 0 ] && [ "${BENCH_HTTPS:-1}" != 0 ] && [ -f "$build/bin/bench_https.exe" ]; then
  https_runs=${BENCH_BIG_RUNS:-3}
  https_size=1073741824
  https_cut=$(( https_size * 9 / 10 ))
  if ! HTTPS_LAB_SLOW_AFTER=$https_cut "$https_lab" start "$build" "$prefix" "$https_dir" > "$build/bench-https-lab.log" 2>&1; then
    echo "bench: the HTTPS lab did not start:" >&2
    sed 's/^/  /' "$build/bench-https-lab.log" >&2
    exit 1
  fi
  https_port=$(awk -F= '/^\[/ { section = $0 } section == "[ports]" && $1 == "good" { print $2 }' "$https_dir/lab.ini")
  mkdir -p "$https_dir/www/zt-bench" "$big_scratch"
  https_payload="$https_dir/www/zt-bench/payload.bin"
  # The share section's payload, when there is one, serves here as well.
  if [ ! -f "$big_dir/payload.bin" ] || ! ln -f "$big_dir/payload.bin" "$https_payload" 2>/dev/null; then
    head -c "$https_size" /dev/urandom > "$https_payload"
  fi
  chmod 644 "$https_payload"
  https_sum=$(sha256sum "$https_payload" | cut -d' ' -f1)
  https_url="https://localhost:$https_port/zt-bench/payload.bin"

  now_ms() { echo $(( $(date +%s%N) / 1000000 )); }
  min_median() { sort -g | awk '{ v[NR] = $1 } END { m = NR % 2 ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2; print v[1], m }'; }
  field() { tr ' ' '\n' | sed -n "s/^$1=//p"; }
  ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", a / b }'; }

  echo
  echo "== 1 GiB payload over HTTPS: the tool beside curl + sha256sum ($https_runs rounds)"
  tool_ms=() curl_ms=() https_ratio=() https_peak=0
  for round in $(seq "$https_runs"); do
    t0=$(now_ms)
    curl -sS --fail --cacert "$https_dir/certs/ca.pem" -o "$big_scratch/curl.bin" "$https_url"
    curl_sum=$(sha256sum "$big_scratch/curl.bin" | cut -d' ' -f1)
    curl_ms+=($(( $(now_ms) - t0 )))
    rm -f "$big_scratch/curl.bin"
    if [ "$curl_sum" != "$https_sum" ]; then
      echo "bench: curl fetched other bytes than the payload's" >&2
      exit 1
    fi
    https_out=$("$build/wine-run" "$build/bin/bench_https.exe" fetch "$https_url" "$https_size" "$https_sum" 1 |
      tr -d '\r')
    line=$(grep '^https_ms_min=' <<<"$https_out")
    tool_ms+=($(field https_ms_min <<<"$line"))
    kib=$(field peak_ws_kib <<<"$line")
    [ "$kib" -gt "$https_peak" ] && https_peak=$kib
    https_ratio+=($(ratio "${tool_ms[-1]}" "${curl_ms[-1]}"))
    echo "  round $round: tool ${tool_ms[-1]} ms, curl + sha256sum ${curl_ms[-1]} ms"
  done

  resume_out=$("$build/wine-run" "$build/bin/bench_https.exe" resume \
    "https://localhost:$https_port/slow-after/zt-bench/payload.bin" "$https_size" "$https_sum" "$https_cut" |
    tr -d '\r')
  grep -v '^cut_bytes=' <<<"$resume_out" | sed 's/^/  /'
  line=$(grep '^cut_bytes=' <<<"$resume_out")
  resume_ms=$(field resume_ms <<<"$line")
  cut_bytes=$(field cut_bytes <<<"$line")

  read -r a_min a_med < <(printf '%s\n' "${tool_ms[@]}" | min_median)
  read -r b_min b_med < <(printf '%s\n' "${curl_ms[@]}" | min_median)
  read -r _ https_r < <(printf '%s\n' "${https_ratio[@]}" | min_median)

  echo
  printf '%-46s %8s %8s   %s\n' "" "min ms" "med ms" "tool / Linux (median of rounds)"
  printf '%-46s %8d %8d\n' "tool: DOWNLOAD run over HTTPS (fetch, verify)" "$a_min" "$a_med"
  printf '%-46s %8d %8d   %s  (target <= 1.30)\n' "Linux: curl + sha256sum" "$b_min" "$b_med" "$https_r"
  printf '%-46s %8.1f MiB  (target < 32 MiB)\n' "tool: peak working set during an HTTPS run" \
    "$(awk -v k="$https_peak" 'BEGIN { print k / 1024 }')"
  printf '%-46s %8d ms after a cut at %s %% (%s of a whole run)\n' "tool: the run that resumes" "$resume_ms" \
    "$(awk -v c="$cut_bytes" -v s="$https_size" 'BEGIN { printf "%.1f", 100 * c / s }')" \
    "$(ratio "$resume_ms" "$a_med")"
fi
