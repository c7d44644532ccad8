#!/usr/bin/env bash
# The main job: builds everything, then shows the system at work.
# ZEL_PYTHON=python3 ./run-demo.sh: the same with the agent and the client
# built for (and embedding) Python 3, in build-py3/.
set -euo pipefail
root=$(cd "$(dirname "$0")" && pwd)
"$root/scripts/setup.sh" >/dev/null
. "$root/scripts/pythonenv.sh"
zel_python_choose "${ZEL_PYTHON:-}"
build=${ZEL_BUILD:-$root/build$ZEL_PYTHON_SUFFIX}
exec "$root/scripts/demo.sh" "$build"
