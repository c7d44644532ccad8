#!/usr/bin/env bash
# Builds the project with AddressSanitizer and UndefinedBehaviorSanitizer
# in its own tree (build-asan, or $ZEL_ASAN_BUILD) and runs every test:
# the native tests first, then the Python tests through the launcher.
# The asan stage of ./run-tests.sh; by hand, extra arguments go to both
# ctest runs (e.g. -R name).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${ZEL_ASAN_BUILD:-$root/build-asan}

# -fno-omit-frame-pointer: readable stacks in reports.
# -fno-sanitize-recover=undefined: undefined behaviour stops the test that
#   hits it, so ctest reports it as a failure rather than a log line.
# Debug: no optimisation hiding the faulty line.
san="-fsanitize=address,undefined"
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug \
    -DCMAKE_CXX_FLAGS="$san -fno-omit-frame-pointer -fno-sanitize-recover=undefined" \
    -DCMAKE_EXE_LINKER_FLAGS="$san" \
    -DCMAKE_SHARED_LINKER_FLAGS="$san"
ninja -C "$build" -j"${ZEL_JOBS:-2}"

cd "$build"

# Native tests (label cpp, and agent_signals which has no label): every
# sanitizer on, leak checking included.
# The zelpy tests embed CPython 2.7 and keep its interpreter until exit;
# its objects live in mmap'd arenas the leak checker does not scan, so the
# blocks they point to look leaked. lsan-python27.supp names the CPython
# allocation functions concerned (see the file), nothing of ours.
export LSAN_OPTIONS="suppressions=$root/scripts/lsan-python27.supp:print_suppressions=0"
# halt_on_error: stop at the first report (the default for ASan; stated so
# the Python run below matches).
export ASAN_OPTIONS="halt_on_error=1"
export UBSAN_OPTIONS="print_stacktrace=1"
# The install test (label install) builds programs against the tree
# installed, which a sanitized tree is not meant for.
ctest -LE 'python|install' --output-on-failure -j2 "$@"

# Python tests: build-asan/zelpython runs the system CPython 2.7, which is
# not built with ASan. The sanitizer runtimes must then be loaded first,
# before the interpreter imports the sanitized modules (_Zel and friends),
# hence LD_PRELOAD; the programs the tests start (zelagent, zelc) inherit it
# harmlessly, being sanitized themselves.
# detect_leaks=0: CPython 2.7's allocator (pymalloc arenas, free lists,
# interned strings, the never-finalised interpreter) keeps memory by design
# and the leak report at exit would be all of it. Leaks of our own C++
# code are covered by the native run above.
preload="$(gcc -print-file-name=libasan.so):$(gcc -print-file-name=libubsan.so)"
LD_PRELOAD="$preload" ASAN_OPTIONS="detect_leaks=0:halt_on_error=1" \
    ctest -L python --output-on-failure -j2 "$@"
