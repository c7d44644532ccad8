#!/usr/bin/env bash
# Builds the benchmarks in a Release tree (build-release, or
# $ZEL_BENCH_BUILD) and runs them all through bench/run.py, which prints one
# table with PASS or MISS per target. Exit status: 0 when every target
# passes, 1 otherwise. ZEL_PYTHON=python3 measures a Python 3 tree
# (build-release-py3; see scripts/pythonenv.sh). Arguments go to the runner:
#   scripts/bench.sh                 full run (about 3 minutes after the build)
#   scripts/bench.sh --quick         smoke run (well under a minute)
#   scripts/bench.sh --markdown      the table as Markdown
#   scripts/bench.sh --repeats 9     more repeats (at least 5)
# See docs/benchmarks.md.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
. "$root/scripts/pythonenv.sh"
zel_python_choose "${ZEL_PYTHON:-}"
build=${ZEL_BENCH_BUILD:-$root/build-release$ZEL_PYTHON_SUFFIX}

cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DZEL_WERROR=ON "${ZEL_PYTHON_CMAKE[@]}" >/dev/null
# Only what the benchmarks run: every library and Python module under lib/
# (the Zel package may import any of them; _ZelBench holds the floors), the
# agent and the bench programs. The tests are not built.
libs=$(ninja -C "$build" -t targets all | sed -n 's|^\(lib/[^:]*\.so[.0-9]*\): .*|\1|p')
# shellcheck disable=SC2086  # one target per word
ninja -C "$build" -j"${ZEL_JOBS:-2}" $libs zelagent bench_activity bench_collections
# bench_client changes often; when it does not build, its rows read MISSING
# instead of the whole run failing (and no stale binary is measured).
if ! ninja -C "$build" -j"${ZEL_JOBS:-2}" bench_client; then
    echo "bench.sh: bench_client did not build; its rows will read MISSING" >&2
    rm -f "$build/bin/bench_client"
fi

cd "$root"
exec "$build/zelpython" bench/run.py --build-dir "$build" "$@"
