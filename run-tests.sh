#!/usr/bin/env bash
# Every test of the project, for a fresh machine: installs what is missing,
# builds, and runs these stages in turn, each in its own build tree:
#
#   suite     the C++ and Python suites through CTest (build/)
#   asan      the same under AddressSanitizer + UndefinedBehaviorSanitizer
#             (scripts/sanitize.sh, build-asan/)
#   tsan      the threaded C++ tests and the Python lock-order stress tests
#             under ThreadSanitizer (scripts/tsan.sh, build-tsan/)
#   memcheck  the Python suite under valgrind memcheck (scripts/memcheck.sh,
#             on build/)
#   fuzz      every libFuzzer target for ZEL_FUZZ_SECONDS (default 30)
#             seconds (scripts/fuzz.sh, build-fuzz/)
#   chaos     agents killed (SIGKILL, SIGTERM) and restarted at random while
#             zelc clients run commands, for ZEL_CHAOS_SECONDS (default 20)
#             seconds (tests/python/chaos.py, on build/)
#
#   ./run-tests.sh                  every stage (what CI runs)
#   ./run-tests.sh --quick [ARGS]   the suite stage only, for day-to-day work
#   ZEL_STAGES="suite tsan" ./run-tests.sh   the stages named
#
# Other arguments go to ctest in the suite and asan stages (for example
# -R runtime). A stage that fails does not stop the later ones; the
# summary lists every stage with its time, and the exit status is 1 if
# any failed. ZEL_SOAK_SECONDS sets the soak test's length (default 20).
set -uo pipefail
root=$(cd "$(dirname "$0")" && pwd)
build=${ZEL_BUILD:-$root/build}

stages=${ZEL_STAGES:-suite asan tsan memcheck fuzz chaos}
if [ "${1:-}" = "--quick" ]; then
    shift
    stages=suite
fi

"$root/scripts/setup.sh" || exit 1

run_stage() {
    case $1 in
    suite) (cd "$build" && ctest --output-on-failure -j2 "${@:2}") ;;
    asan) "$root/scripts/sanitize.sh" "${@:2}" ;;
    tsan) "$root/scripts/tsan.sh" ;;
    memcheck) "$root/scripts/memcheck.sh" ;;
    fuzz) "$root/scripts/fuzz.sh" "${ZEL_FUZZ_SECONDS:-30}" ;;
    chaos) ZEL_BUILD_DIR="$build" "$build/zelpython" "$root/tests/python/chaos.py" "${ZEL_CHAOS_SECONDS:-20}" ;;
    *) echo "run-tests: unknown stage '$1' (suite, asan, tsan, memcheck, fuzz, chaos)" >&2; return 2 ;;
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
