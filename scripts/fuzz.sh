#!/usr/bin/env bash
# scripts/fuzz.sh [--time SECONDS] [NAME...]
# Builds the libFuzzer targets of fuzz/ with clang (library and targets under ASan+UBSan)
# into build-fuzz/, then runs each named target (all by default) for SECONDS (default 60).
# Each run starts from the seed corpus fuzz/corpus/NAME/ and keeps what it finds in
# build-fuzz/corpus/NAME/, so a later run goes on from there; a crashing input is saved
# as build-fuzz/artifacts/NAME-crash-<hash> and ends the script with status 1.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)

seconds=60
names=()
while (($#)); do
  case "$1" in
    --time) seconds="$2"; shift 2 ;;
    -h|--help) sed -n '2,7p' "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
    -*) echo "fuzz.sh: unknown option '$1'" >&2; exit 2 ;;
    *) names+=("$1"); shift ;;
  esac
done

build_dir="$here/build-fuzz"
"$here/scripts/setup.sh" >&2
CC=clang CXX=clang++ cmake -S "$here" -B "$build_dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
      -DMIREL_FUZZ=ON -DMIREL_BUILD_TESTS=OFF -DMIREL_BUILD_BENCH=OFF >&2
cmake --build "$build_dir" -j "${MIREL_JOBS:-$(nproc)}" >&2

if ((${#names[@]} == 0)); then
  for exe in "$build_dir"/fuzz/*_fuzz; do
    name=$(basename "$exe")
    names+=("${name%_fuzz}")
  done
fi

export QT_QPA_PLATFORM=offscreen
# As in the test builds: blocks may cross the library's own operator new and the process's.
export ASAN_OPTIONS="detect_leaks=1:alloc_dealloc_mismatch=0${ASAN_OPTIONS:+:$ASAN_OPTIONS}"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1${UBSAN_OPTIONS:+:$UBSAN_OPTIONS}"

passed=0
failed=0
mkdir -p "$build_dir/artifacts" "$build_dir/logs"
for name in "${names[@]}"; do
  exe="$build_dir/fuzz/${name}_fuzz"
  seeds="$here/fuzz/corpus/$name"
  if [ ! -x "$exe" ] || [ ! -d "$seeds" ]; then
    echo "fuzz.sh: no target '$name' (or no fuzz/corpus/$name/)" >&2
    exit 2
  fi
  mkdir -p "$build_dir/corpus/$name"
  log="$build_dir/logs/$name.log"
  echo "== fuzz $name for ${seconds} s =="
  # Generous per-input limits: a slow input on a busy machine is not a finding, a hang is.
  if "$exe" -max_total_time="$seconds" -timeout=25 -rss_limit_mb=4096 -print_final_stats=1 \
       -artifact_prefix="$build_dir/artifacts/$name-" \
       "$build_dir/corpus/$name" "$seeds" >"$log" 2>&1; then
    passed=$((passed + 1))
    grep -E '^stat::(number_of_executed_units|peak_rss_mb)|^Done' "$log" || true
  else
    failed=$((failed + 1))
    echo "fuzz $name FAILED; the end of its log ($log):"
    tail -n 60 "$log"
  fi
done
echo "fuzz: $passed passed, $failed failed"
((failed == 0))
