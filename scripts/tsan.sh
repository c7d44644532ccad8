#!/usr/bin/env bash
# Builds the threaded C++ test programs and the Python modules with
# ThreadSanitizer in their own folder and runs the programs, then the
# Python lock-order stress tests, printing the race reports; then the same
# Python tests on Python 3 (ZEL_PYTHON, default Debian's python3; see
# scripts/pythonenv.sh) in a second folder, which builds only the modules
# and zelc. A stage of ./run-tests.sh (its full run); by hand:
#   scripts/tsan.sh [gtest filter for zel_runtime_tests]
# ZEL_TSAN_PY3=0 leaves Python 3 out.
set -uo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${ZEL_TSAN_BUILD:-$root/build-tsan}
jobs=${ZEL_TSAN_JOBS:-2}
. "$root/scripts/pythonenv.sh"

# Debug keeps the frames of the reports readable; -fno-omit-frame-pointer
# gives TSan's unwinder complete stacks. The sanitizer flag goes to every
# link too, so the shared libraries (libzel, the Python module) are
# instrumented like the test programs. Arguments: the tree, then more
# configure arguments.
configure() {
  cmake -S "$root" -B "$1" -G Ninja -DCMAKE_BUILD_TYPE=Debug \
    -DCMAKE_CXX_FLAGS="-fsanitize=thread -fno-omit-frame-pointer" \
    -DCMAKE_EXE_LINKER_FLAGS="-fsanitize=thread" \
    -DCMAKE_SHARED_LINKER_FLAGS="-fsanitize=thread" "${@:2}"
}

# Every library and Python module under lib/ of a tree, for the Python runs.
libraries() {
  ninja -C "$1" -t targets all | sed -n 's|^\(lib/[^:]*\.so[.0-9]*\): .*|\1|p'
}

configure "$build" || exit 1
# shellcheck disable=SC2046  # one target per word
ninja -C "$build" -j"$jobs" zel_runtime_tests zelpy_tests zeldemo_tests zelagent_tests zelc zelagent \
  $(libraries "$build") || exit 1

# halt_on_error=0: report every race of a run, not only the first.
# second_deadlock_stack=1: lock-order reports show where both locks were taken.
# scripts/tsan.supp holds the one report that is the sanitizer's blind
# spot rather than a race (dynamic TLS freed through the C library's stack
# cache, which Python 3's detached threads go through); otherwise the runs
# report nothing in third-party code (the C library, libstdc++, GoogleTest,
# CPython 2.7 and 3).
# A race report makes a test program exit with 66, which fails the script.
export TSAN_OPTIONS="halt_on_error=0:second_deadlock_stack=1:suppressions=$root/scripts/tsan.supp${TSAN_OPTIONS:+:$TSAN_OPTIONS}"

status=0
run() {
  echo "== $*"
  "$@" || status=1
}

# The fatal-signal death tests fork; gtest runs them first, before any
# other thread exists, so TSan's "fork in a multi-threaded process" caveat
# does not apply and they stay in.
run "$build/bin/zel_runtime_tests" ${1:+--gtest_filter="$1"}

# zelpy_tests embeds the tree's Python interpreter, which is not
# instrumented: its locks (the GIL) go through the intercepted C library and
# are seen, but the interpreter's own memory accesses are not, so races
# inside CPython objects cannot show up here. No suppression is needed for it.
PYTHONPATH="$build/lib:$root/python" run "$build/bin/zelpy_tests"

run "$build/bin/zeldemo_tests"
run "$build/bin/zelagent_tests"

# The Python tests where threads meet both locks: writers, readers, the
# activity loop, notifications and clock firings into Python at once, the
# lock functions and anchors, and the soak (all of that with remote
# commands and handle churn besides; 10 s unless ZEL_SOAK_SECONDS says).
# The interpreter is not instrumented, so the runtime is preloaded before
# it loads the instrumented modules; it is started directly rather than
# through the tree's zelpython, as /bin/sh does not survive the preload. A
# report makes the run exit with 66; the log is searched as well, in case
# the interpreter's own exit status hides it.
python_tests() {
  local tree=$1 pylog=$1/tsan-python.log python pylibs
  # The launcher knows the interpreter and its library path; ask it.
  { read -r python; read -r pylibs; } < <("$tree/zelpython" -c \
    'import os, sys; print(sys.executable); print(os.environ["LD_LIBRARY_PATH"])')
  echo "== python $("$tree/zelpython" -c 'import platform; print(platform.python_version())'):" \
    "${ZEL_TSAN_PY_TESTS:=test_module_locks test_soak}"
  # shellcheck disable=SC2086  # one module per word
  (cd "$root/tests/python" &&
    LD_LIBRARY_PATH="$pylibs" \
    PYTHONPATH="$tree/lib:$root/python" ZEL_BUILD_DIR="$tree" ZEL_SOAK_SECONDS="${ZEL_SOAK_SECONDS:-10}" \
    LD_PRELOAD="$(gcc -print-file-name=libtsan.so)" \
    "$python" -m unittest $ZEL_TSAN_PY_TESTS) >"$pylog" 2>&1 || status=1
  if grep -q 'WARNING: ThreadSanitizer' "$pylog"; then status=1; fi
  cat "$pylog"
}
python_tests "$build"

if [ "${ZEL_TSAN_PY3:-1}" != 0 ]; then
  zel_python_choose "${ZEL_PYTHON:-python3}" || exit 1
  build3=${ZEL_TSAN_BUILD_PY3:-$root/build-tsan$ZEL_PYTHON_SUFFIX}
  echo "== Python $ZEL_PYTHON_VERSION tree $build3"
  configure "$build3" "${ZEL_PYTHON_CMAKE[@]}" >/dev/null || exit 1
  # shellcheck disable=SC2046  # one target per word
  ninja -C "$build3" -j"$jobs" zelc $(libraries "$build3") || exit 1
  python_tests "$build3"
fi
exit $status
