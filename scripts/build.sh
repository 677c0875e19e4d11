#!/usr/bin/env bash
# scripts/build.sh [--sanitize address|thread] [--build-dir DIR] [--release]
# Configures and builds everything (library, tool, tests, benchmarks) with CMake + Ninja.
# The AddressSanitizer build is configured as edition 255 of the application and the others
# as edition 2, so that CI runs the suite as two editions; MIREL_EDITION=N sets another.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)

sanitize=""
build_dir=""
build_type=RelWithDebInfo
while (($#)); do
  case "$1" in
    --sanitize) sanitize="$2"; shift 2 ;;
    --build-dir) build_dir="$2"; shift 2 ;;
    --release) build_type=Release; shift ;;
    *) echo "build.sh: unknown argument '$1'" >&2; exit 2 ;;
  esac
done
[ -n "$build_dir" ] || build_dir="$here/build${sanitize:+-$sanitize}"
edition=${MIREL_EDITION:-$([ "$sanitize" = address ] && echo 255 || echo 2)}

# Progress goes to standard error; standard output carries only the build directory, for
# the scripts that call this one.
"$here/scripts/setup.sh" >&2
cmake -S "$here" -B "$build_dir" -G Ninja -DCMAKE_BUILD_TYPE="$build_type" \
      -DMIREL_SANITIZE="$sanitize" -DMIREL_EDITION="$edition" >&2
cmake --build "$build_dir" -j "${MIREL_JOBS:-$(nproc)}" >&2
echo "$build_dir"
