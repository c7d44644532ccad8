#!/usr/bin/env bash
# Installs the Debian packages the build needs (when missing), configures
# the build folder and builds everything. Safe to run again.
#
# ZEL_PYTHON picks the interpreter (scripts/pythonenv.sh): unset, CPython
# 2.7 in build/; ZEL_PYTHON=python3, Debian's Python 3 in build-py3/.
# ZEL_BUILD names another folder.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)

# clang-14 and its runtime build the fuzz targets; valgrind runs the memory
# checks; python3-dev is the Python 3 (3.11) a second tree is built for;
# zelc's console edits lines with libedit, and its test drives it in tmux.
# help2man makes the manual pages; dpkg-dev and file let cpack make the
# Debian packages.
packages=(g++ cmake ninja-build pkg-config help2man dpkg-dev file libgtest-dev libgmock-dev libbenchmark-dev libboost-dev clang-14 libclang-rt-14-dev
          valgrind python3-dev libedit-dev tmux)
missing=()
for p in "${packages[@]}"; do
  dpkg -s "$p" >/dev/null 2>&1 || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "setup: installing ${missing[*]}"
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo=sudo
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${missing[@]}" >/dev/null
fi

. "$root/scripts/pythonenv.sh"
zel_python_choose "${ZEL_PYTHON:-}"
build=${ZEL_BUILD:-$root/build$ZEL_PYTHON_SUFFIX}

if [ ! -f "$build/build.ninja" ]; then
  cmake -S "$root" -B "$build" -G Ninja -DZEL_WERROR=ON "${ZEL_PYTHON_CMAKE[@]}" ${ZEL_CMAKE_ARGS:-}
fi
cmake --build "$build"
