#!/usr/bin/env bash
# The main job: builds everything, then shows the system at work.
set -euo pipefail
root=$(cd "$(dirname "$0")" && pwd)
"$root/scripts/setup.sh" >/dev/null
build=${ZEL_BUILD:-$root/build}
if [ -x "$root/scripts/demo.sh" ]; then
  exec "$root/scripts/demo.sh" "$build"
fi
echo "The runtime is built: $build/lib"
ls "$build/lib"
"$build/zelpython" -c "import sys; print 'Python', sys.version.split()[0]"
