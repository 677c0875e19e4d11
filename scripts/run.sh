#!/usr/bin/env bash
# Builds everything and runs the tour of the library (extra arguments go to `mirel tour`).
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
build_dir=$("$here/scripts/build.sh" | tail -n 1)
exec "$build_dir/tools/mirel/mirel" tour "$@"
