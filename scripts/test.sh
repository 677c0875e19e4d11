#!/usr/bin/env bash
# scripts/test.sh [--sanitize address|thread] [-L label] [ctest arguments...]
# Builds everything and runs the tests. Under --sanitize thread only the tests labelled
# "concurrency" run unless a label is given.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)

sanitize=""
if [ "${1:-}" = "--sanitize" ]; then sanitize="$2"; shift 2; fi
build_dir=$("$here/scripts/build.sh" ${sanitize:+--sanitize "$sanitize"} | tail -n 1)

args=("$@")
if [ "$sanitize" = "thread" ] && [[ " ${args[*]-} " != *" -L "* ]]; then
  args=(-L concurrency "${args[@]}")
fi
export QT_QPA_PLATFORM=offscreen
# The library's own operator new takes blocks from malloc, and a block made inside the
# library may be released by the application's operator delete (an inline destructor)
# or the reverse; both end in the same free, which ASan would report as a mismatch.
export ASAN_OPTIONS="detect_leaks=1:abort_on_error=0:alloc_dealloc_mismatch=0${ASAN_OPTIONS:+:$ASAN_OPTIONS}"
# Qt's X11 plug-in (screenshot tests only) leaves D-Bus buffers that are not ours.
export LSAN_OPTIONS="suppressions=$here/scripts/lsan-xcb.supp${LSAN_OPTIONS:+:$LSAN_OPTIONS}"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1${UBSAN_OPTIONS:+:$UBSAN_OPTIONS}"
export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1${TSAN_OPTIONS:+:$TSAN_OPTIONS}"
# The screenshot tests (label "gui") want a real X display: a private Xvfb, named to them
# alone in MIREL_GUI_DISPLAY, and stopped however this script ends. Without Xvfb they skip.
if [ "$sanitize" != "thread" ] && command -v Xvfb >/dev/null; then
  display_file=$(mktemp)
  Xvfb -displayfd 3 -screen 0 1280x1024x24 -nolisten tcp 3>"$display_file" >/dev/null 2>&1 &
  xvfb_pid=$!
  trap 'kill "$xvfb_pid" 2>/dev/null || true; rm -f "$display_file"' EXIT
  for _ in $(seq 100); do
    [ -s "$display_file" ] && break
    sleep 0.1
  done
  if [ -s "$display_file" ]; then
    export MIREL_GUI_DISPLAY=":$(head -n 1 "$display_file")"
  else
    echo "test.sh: Xvfb did not start; the screenshot tests will skip" >&2
  fi
fi
cd "$build_dir"
ctest --output-on-failure -j "${MIREL_JOBS:-$(nproc)}" ${args[@]+"${args[@]}"}
