#!/usr/bin/env bash
# Installs what building and testing mirel needs, from Debian's packages, when missing.
set -euo pipefail

# clang and its runtime build the fuzz targets, doxygen (with python3) the API reference;
# GeographicLib, Hinnant's date and pugixml are the baselines of parser benchmarks only;
# xvfb is the X display of the screenshot tests.
packages=(build-essential cmake ninja-build pkg-config qt6-base-dev libexpat1-dev
          libgtest-dev libgmock-dev libbenchmark-dev clang libclang-rt-14-dev doxygen python3
          libgeographiclib-dev libhowardhinnant-date-dev libpugixml-dev xvfb)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if ((${#missing[@]})); then
  echo "setup: installing ${missing[*]}"
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
