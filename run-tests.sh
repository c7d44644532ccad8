#!/usr/bin/env bash
# Every test of the project: sets up a fresh machine if needed, builds, and
# runs the C++ and Python suites through CTest.
set -euo pipefail
root=$(cd "$(dirname "$0")" && pwd)
"$root/scripts/setup.sh"
cd "${ZEL_BUILD:-$root/build}"
ctest --output-on-failure -j2 "$@"
