#!/usr/bin/env bash
# Every test of the project, for a fresh machine: installs what is missing,
# builds, and runs these stages in turn, each in its own build tree:
#
#   suite     the C++ and Python suites through CTest, on CPython 2.7 (build/)
#   suite3    the same on Python 3: Debian's python3 (build-py3/), or the
#             interpreter ZEL_PYTHON names (scripts/pythonenv.sh)
#   asan      the same under AddressSanitizer + UndefinedBehaviorSanitizer
#             (scripts/sanitize.sh, build-asan/)
#   tsan      the threaded C++ tests and the Python lock-order stress tests
#             under ThreadSanitizer, the latter on 2.7 and on Python 3
#             (scripts/tsan.sh, build-tsan/ and build-tsan-py3/)
#   memcheck  the Python suite under valgrind memcheck (scripts/memcheck.sh,
#             on build/)
#   fuzz      every libFuzzer target for ZEL_FUZZ_SECONDS (default 30)
#             seconds (scripts/fuzz.sh, build-fuzz/)
#   chaos     agents killed (SIGKILL, SIGTERM) and restarted at random while
#             zelc clients run commands, for ZEL_CHAOS_SECONDS (default 20)
#             seconds (tests/python/chaos.py), on build/ and then on the
#             Python 3 tree
#
#   ./run-tests.sh                  every stage (what CI runs)
#   ./run-tests.sh --quick [ARGS]   the suite stages only, for day-to-day work
#   ZEL_STAGES="suite tsan" ./run-tests.sh   the stages named
#
# Other arguments go to ctest in the suite, suite3 and asan stages (for
# example -R runtime). A stage that fails does not stop the later ones; the
# summary lists every stage with its time, and the exit status is 1 if
# any failed. ZEL_SOAK_SECONDS sets the soak test's length (default 20).
set -uo pipefail
root=$(cd "$(dirname "$0")" && pwd)
build=${ZEL_BUILD:-$root/build}
# The Python 3 the suite3 and tsan stages use.
python3=${ZEL_PYTHON:-python3}

stages=${ZEL_STAGES:-suite suite3 asan tsan memcheck fuzz chaos}
if [ "${1:-}" = "--quick" ]; then
    shift
    stages="suite suite3"
fi

# The 2.7 tree, which most stages use; suite3 builds its own.
ZEL_PYTHON="" "$root/scripts/setup.sh" || exit 1

# The suite in the tree of the interpreter ZEL_PYTHON names.
suite3() {
    . "$root/scripts/pythonenv.sh"
    zel_python_choose "$python3" || return 1
    ZEL_PYTHON=$python3 ZEL_BUILD="" "$root/scripts/setup.sh" &&
        (cd "$root/build$ZEL_PYTHON_SUFFIX" && ctest --output-on-failure -j2 "$@")
}

# The chaos script in the 2.7 tree, then in the Python 3 tree.
chaos() {
    local seconds=${ZEL_CHAOS_SECONDS:-20} failed=0
    ZEL_BUILD_DIR="$build" "$build/zelpython" "$root/tests/python/chaos.py" "$seconds" || failed=1
    . "$root/scripts/pythonenv.sh"
    zel_python_choose "$python3" || return 1
    ZEL_PYTHON=$python3 ZEL_BUILD="" "$root/scripts/setup.sh" || return 1
    local tree="$root/build$ZEL_PYTHON_SUFFIX"
    ZEL_BUILD_DIR="$tree" "$tree/zelpython" "$root/tests/python/chaos.py" "$seconds" || failed=1
    return $failed
}

run_stage() {
    case $1 in
    suite) (cd "$build" && ctest --output-on-failure -j2 "${@:2}") ;;
    suite3) suite3 "${@:2}" ;;
    asan) "$root/scripts/sanitize.sh" "${@:2}" ;;
    tsan) ZEL_PYTHON=$python3 "$root/scripts/tsan.sh" ;;
    memcheck) "$root/scripts/memcheck.sh" ;;
    fuzz) "$root/scripts/fuzz.sh" "${ZEL_FUZZ_SECONDS:-30}" ;;
    chaos) chaos ;;
    *) echo "run-tests: unknown stage '$1' (suite, suite3, asan, tsan, memcheck, fuzz, chaos)" >&2; return 2 ;;
    esac
}

summary=()
failed=0
for stage in $stages; do
    echo "==== stage $stage"
    start=$SECONDS
    if run_stage "$stage" "$@"; then
        verdict=passed
    else
        verdict=FAILED
        failed=1
    fi
    summary+=("$(printf '%-9s %-6s %4ds' "$stage" "$verdict" $((SECONDS - start)))")
done

echo "==== summary"
printf '%s\n' "${summary[@]}"
exit $failed
