# What the shell-driven lab tests share; sourced, not run. They drive the
# tool from outside Wine, each in a prefix of its own that is thrown away
# afterwards: a restart of the machine ends every process of a prefix (and
# would end an in-Wine harness with it), and a small file system needs a
# drive of its own.
#   lab_open BUILD NAME   prefix BUILD/wineprefix-NAME, work folder BUILD/NAME-test
# Afterwards: $build, $scripts, $prefix, $work, and $status (0 while all is well).

lab_open() {
  build=$(cd "$1" && pwd)
  scripts=$(cd "$(dirname "${BASH_SOURCE[0]}")/../../scripts" && pwd)
  prefix="$build/wineprefix-$2"
  work="$build/$2-test"
  export WINEPREFIX="$prefix"
  . "$scripts/wine-env.sh"
  status=0
  lab_close
  trap lab_close EXIT
  "$scripts/lab.sh" prepare "$prefix" >/dev/null || { echo "FAILED: could not make the throwaway lab"; exit 1; }
  mkdir -p "$work"
}

# Further clean-up a test needs before its prefix goes: define lab_extra_close.
# It runs after the prefix's processes have ended.
lab_close() {
  "$scripts/lab.sh" stop "$prefix" >/dev/null 2>&1
  declare -F lab_extra_close >/dev/null && lab_extra_close
  rm -rf "$prefix" "$prefix.lock" "$work"
}

# A restart of the machine, as far as a prefix can have one: its session
# ends (volatile keys go with it) and the lab starts again.
lab_restart() {
  wineserver -k >/dev/null 2>&1
  wineserver -w >/dev/null 2>&1
  "$scripts/lab.sh" prepare "$prefix" >/dev/null || { echo "FAILED: could not restart the lab"; exit 1; }
}

# A test of several cases: a heading for each, and at its end the tool's
# output of its last run when one of the case's checks failed.
case_begin() {  # case_begin TITLE
  echo "== $1"
  case_status=$status
}
case_end() {
  if [ "$status" -ne "${case_status:-0}" ]; then
    echo "--- tool output"
    cat "$run_output"
  fi
}

ok() { echo "ok: $1"; }

# Whether a wineboot of this prefix (not of another lab on the machine) runs:
# a process whose command line names wineboot and whose environment holds
# this WINEPREFIX. Read straight from /proc, so the lab needs no process tools
# that setup.sh doesn't install; a process that ends meanwhile is skipped.
own_wineboot() {
  local dir args env var
  for dir in /proc/[0-9]*; do
    mapfile -d '' args 2>/dev/null < "$dir/cmdline" || continue
    [[ "${args[*]}" == *wineboot* ]] || continue
    mapfile -d '' env 2>/dev/null < "$dir/environ" || continue
    for var in "${env[@]}"; do
      [ "$var" = "WINEPREFIX=$prefix" ] && return 0
    done
  done
  return 1
}
bad() { echo "FAILED: $1"; status=1; }
check() {  # check DESCRIPTION COMMAND...
  local what=$1
  shift
  if "$@"; then ok "$what"; else bad "$what"; fi
}

winpath() { wine winepath -w "$1" 2>/dev/null | tr -d '\r'; }
# A set-up step that fails is reported, so that later checks don't puzzle.
put() { wine reg add "$1" /v "$2" /t REG_SZ /d "$3" /f >/dev/null 2>&1 || bad "setup: could not write $1\\$2"; }
make_key() { wine reg add "$1" /f >/dev/null 2>&1 || bad "setup: could not make $1"; }
drop_key() { wine reg delete "$1" /f >/dev/null 2>&1; }
drop_value() { wine reg delete "$1" /v "$2" /f >/dev/null 2>&1; }
value() { wine reg query "$1" /v "$2" 2>/dev/null | tr -d '\r' | awk -v n="$2" '$1 == n { $1 = ""; $2 = ""; sub(/^ +/, ""); print }'; }
has_value() { wine reg query "$1" /v "$2" >/dev/null 2>&1; }
expect_absent() {  # expect_absent KEY NAME
  if has_value "$1" "$2"; then bad "$2 stands in $1"; else ok "no $2"; fi
}
expect_value() {  # expect_value KEY NAME TEXT: present, and holding the text
  local actual
  if ! has_value "$1" "$2"; then bad "$2 is missing, expected \"$3\""; return; fi
  actual=$(value "$1" "$2")
  if [ "$actual" = "$3" ]; then ok "$2 is \"$3\""; else bad "$2 is \"$actual\", expected \"$3\""; fi
}

# The lab's stand-in installer as PATH: it exits with the number its name
# ends in and records its command line (UTF-16LE) in PATH.cmdline.txt.
place_stand_in() { cp "$build/bin/exitcode-installer.exe" "$1"; }
stand_in_cmdline() { iconv -f UTF-16LE -t UTF-8 "$1.cmdline.txt" 2>/dev/null; }

# Runs the tool in a folder (Unix path) and checks that it ended by itself;
# sets run_rc (8 bits), run_ms, run_output (the file of its output), console
# (the output) and messages (its lines without time stamps).
run_tool() {  # run_tool FOLDER NAME
  local started ended
  run_output="$work/$2.txt"
  started=$(date +%s%N)
  (cd "$1" && timeout 120 wine "$build/bin/zenthra-updatetool.exe") > "$run_output" 2>&1
  run_rc=$?
  ended=$(date +%s%N)
  run_ms=$(( (ended - started) / 1000000 ))
  check "the run ended by itself (no timeout)" test "$run_rc" -ne 124
  # Wine carries a restart out with a wineboot of its own, which ends any
  # process that starts meanwhile: let it finish before looking.
  for _ in $(seq 100); do
    own_wineboot || break
    sleep 0.2
  done
  console=$(tr -d '\r' < "$run_output")
  messages=$(sed -E 's/^[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}\.[0-9]{2}\.[0-9]{2}: //' <<<"$console")
}

# Each line present, and the first of each after the first of the one
# before it.
in_order() {  # in_order LINE...
  local last=0 at text
  for text in "$@"; do
    at=$(grep -n -F -x -- "$text" <<<"$messages" | head -n 1 | cut -d: -f1)
    if [ -z "$at" ] || [ "$at" -le "$last" ]; then echo "  missing or out of order: $text"; return 1; fi
    last=$at
  done
}
# No line begins with the text.
lacks_prefix() { ! P="$1" awk 'index($0, ENVIRON["P"]) == 1 { found = 1 } END { exit !found }' <<<"$messages"; }

# The telemetry file's entries: whether the file holds a text, how many
# entries, and whether the last one holds exactly the given keys and values
# (JSON text, e.g. '"attempt": 1').
telemetry_has() { grep -q -F -- "$2" "$1"; }  # telemetry_has FILE TEXT
telemetry_count() { python3 -c 'import json,sys; print(len(json.load(open(sys.argv[1]))["updateTool"]))' "$1" 2>/dev/null; }
last_entry_is() {  # last_entry_is FILE JSON-OBJECT-WITHOUT-TIMESTAMP
  python3 - "$1" "$2" <<'EOF'
import json, sys
entry = json.load(open(sys.argv[1]))["updateTool"][-1]
stamp = entry.pop("timestamp", None)
expected = json.loads(sys.argv[2])
if not isinstance(stamp, int) or entry != expected:
    print("  last entry:", json.dumps(entry, sort_keys=True), "timestamp:", stamp)
    sys.exit(1)
EOF
}
