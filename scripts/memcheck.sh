#!/usr/bin/env bash
# Runs the Python test modules under valgrind's memcheck, with the normal
# build (build/, or $ZEL_BUILD) through its launcher, two modules at a time.
#
#   scripts/memcheck.sh [REGEX]     modules whose name matches REGEX (grep -E),
#                                   every tests/python/test_*.py by default
#
# A module fails when valgrind finds an invalid access, a use of an
# uninitialised value or a definite leak in any process it traces (the
# interpreter and the Python children the tests start), or when its tests
# fail. Valgrind itself decides, by its exit status (--error-exitcode), once
# the suppressions of scripts/valgrind-python27.supp have taken out what
# CPython 2.7's own allocator does by design; a traced Python child that
# finds an error exits with that status too, which fails the test that
# started it. zelagent and zelc are not traced: the tests stop the agent
# with SIGTERM and do not look at its status, so an error found there could
# not fail the run, and tracing every zelc the tests start multiplies the
# time of the modules that use them by seven. Logs: $ZEL_MEMCHECK_LOGS
# (default build/memcheck), one file per process, errors with a
# ready-made suppression each.
#
# Environment for the tests: ZEL_UNDER_VALGRIND=1 (for a test to shrink its
# loop counts; none needs to while the whole run takes two minutes) and
# ZEL_SOAK_SECONDS (default 5; test_soak runs that long). ZEL_MEMCHECK_JOBS: modules at a time (default 2). ZEL_VALGRIND_ARGS:
# more valgrind options, e.g. --track-origins=yes or
# --show-leak-kinds=all to study a report.
# Requires an existing build (scripts/setup.sh); builds nothing.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${ZEL_BUILD:-$root/build}
logs=${ZEL_MEMCHECK_LOGS:-$build/memcheck}
jobs=${ZEL_MEMCHECK_JOBS:-2}
filter=${1:-.}
# Exit status valgrind gives a process in which it found an error; any
# status the tests themselves use is below it.
vgstatus=97

if [ ! -x "$build/zelpython" ]; then
    echo "memcheck: no $build/zelpython; build first (scripts/setup.sh)" >&2
    exit 2
fi
command -v valgrind >/dev/null || { echo "memcheck: valgrind is not installed" >&2; exit 2; }

mapfile -t modules < <(cd "$root/tests/python" && ls test_*.py | sed 's/\.py$//' | grep -E -- "$filter" || true)
if [ ${#modules[@]} -eq 0 ]; then
    echo "memcheck: no test module matches '$filter'" >&2
    exit 2
fi

rm -rf "$logs"
mkdir -p "$logs"

export ZEL_UNDER_VALGRIND=1
export ZEL_SOAK_SECONDS=${ZEL_SOAK_SECONDS:-5}
# Under valgrind a zelc run of the soak takes tens of seconds: what counts
# as hung is scaled to match.
export ZEL_SOAK_HANG=${ZEL_SOAK_HANG:-240}

# --trace-children=yes: the launcher is a shell script that execs the
#   interpreter; the children the tests start are traced too, except
#   zelagent and zelc.
# --leak-check=full --errors-for-leak-kinds=definite: a block nothing
#   points to at exit is an error; memory still reachable (CPython keeps
#   its interpreter, modules and caches to the end) and "possibly lost"
#   blocks (interior pointers into pymalloc arenas and tables) are not.
# --show-leak-kinds=definite: the log shows only what fails the run.
# --gen-suppressions=all: each error comes with its suppression, to read
#   where it is, not to paste into the file unexamined.
vg=(valgrind --tool=memcheck --trace-children=yes "--trace-children-skip=*/zelagent,*/zelc"
    --leak-check=full --show-leak-kinds=definite --errors-for-leak-kinds=definite
    --error-exitcode=$vgstatus --num-callers=40 --gen-suppressions=all --vgdb=no
    "--suppressions=$root/scripts/valgrind-python27.supp")
read -r -a extra <<<"${ZEL_VALGRIND_ARGS:-}"
vg+=("${extra[@]}")

run_one() {
    local m=$1 start rc=0
    start=$(date +%s)
    (cd "$root/tests/python" &&
        timeout --foreground --kill-after=30 1800 "${vg[@]}" "--log-file=$logs/$m.%p.log" \
            "$build/zelpython" "$root/tests/python/zeltest_runner.py" "$m") >"$logs/$m.out" 2>&1 || rc=$?
    echo "$m $rc $(($(date +%s) - start))" >>"$logs/results"
}

begin=$(date +%s)
running=0
for m in "${modules[@]}"; do
    if [ "$running" -ge "$jobs" ]; then
        wait -n || true
        running=$((running - 1))
    fi
    run_one "$m" &
    running=$((running + 1))
done
wait

failed=0
while read -r m rc secs; do
    case $rc in
        0) what="ok" ;;
        "$vgstatus") what="VALGRIND ERRORS"; failed=1 ;;
        124|137) what="TIMEOUT"; failed=1 ;;
        *) what="FAILED (status $rc)"; failed=1 ;;
    esac
    # A child's errors fail the test that started it; name its log too.
    if [ "$rc" != 0 ] && grep -l "ERROR SUMMARY: [1-9]" "$logs/$m".*.log >/dev/null 2>&1; then
        what="$what; errors in $(grep -l "ERROR SUMMARY: [1-9]" "$logs/$m".*.log | xargs -n1 basename | tr '\n' ' ')"
    fi
    printf '%-36s %5ss  %s\n' "$m" "$secs" "$what"
done < <(sort "$logs/results")
echo "memcheck: ${#modules[@]} modules in $(($(date +%s) - begin))s; logs in $logs"
if [ "$failed" -ne 0 ]; then
    echo "memcheck: FAILED (output of a module: $logs/<module>.out)" >&2
    exit 1
fi
