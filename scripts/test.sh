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
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1${UBSAN_OPTIONS:+:$UBSAN_OPTIONS}"
export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1${TSAN_OPTIONS:+:$TSAN_OPTIONS}"
cd "$build_dir"
ctest --output-on-failure -j "${MIREL_JOBS:-$(nproc)}" ${args[@]+"${args[@]}"}
