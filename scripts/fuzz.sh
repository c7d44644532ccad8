#!/usr/bin/env bash
# Builds the libFuzzer targets (fuzz/) in their own tree (build-fuzz, or
# $ZEL_FUZZ_BUILD) and runs each one on a copy of its seed corpus for
# SECONDS (default 30). Exits non-zero on any finding (crash, sanitizer
# report, leak, timeout, out-of-memory) and prints where the input that
# caused it was saved. docs/fuzzing.md tells how to reproduce one.
#
#   scripts/fuzz.sh [SECONDS]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${ZEL_FUZZ_BUILD:-$root/build-fuzz}
seconds=${1:-30}
targets=(fuzz_client_response fuzz_agent_file fuzz_strep_parsers fuzz_py_conversion fuzz_server_frames)

for tool in clang-14 clang++-14; do
  command -v "$tool" >/dev/null || { echo "fuzz: $tool not found (Debian packages clang-14, libclang-rt-14-dev)" >&2; exit 2; }
done
cmake -S "$root" -B "$build" -G Ninja -DZEL_FUZZ=ON -DZEL_WERROR=ON \
    -DCMAKE_C_COMPILER=clang-14 -DCMAKE_CXX_COMPILER=clang++-14 >/dev/null
ninja -C "$build" -j"${ZEL_JOBS:-2}" "${targets[@]}"

# Each run starts from the seeds in the repository; what the fuzzer adds
# goes to the scratch copy, findings to findings/<target>/.
run=$build/fuzz-run
rm -rf "$run"
mkdir -p "$run"

# The conversion target embeds CPython 2.7, whose allocator keeps blocks
# the leak checker cannot see (fuzz/lsan-python27.supp says which).
export LSAN_OPTIONS="suppressions=$root/fuzz/lsan-python27.supp:print_suppressions=0"
export UBSAN_OPTIONS="print_stacktrace=1"

failed=()
for t in "${targets[@]}"; do
  mkdir -p "$run/corpus/$t" "$run/findings/$t"
  cp "$root/fuzz/corpus/$t"/* "$run/corpus/$t/"
  echo "fuzz: $t for ${seconds}s"
  # -timeout: an input running longer is a hang, reported as a finding.
  #   The server target's inputs take well under a second, but the limit is
  #   wall time and the fuzzer runs at the lowest priority: on a machine
  #   busy with other work one took 6 s, so the limit leaves room for that.
  # -rss_limit_mb: the embedded interpreter under ASan needs a few hundred
  #   MB; past this an input is a memory finding.
  status=0
  nice -n 19 "$build/bin/$t" -max_total_time="$seconds" -timeout=25 -rss_limit_mb=2048 \
      -artifact_prefix="$run/findings/$t/" -print_final_stats=1 \
      "$run/corpus/$t" >"$run/$t.log" 2>&1 || status=$?
  found=$(find "$run/findings/$t" -type f)
  if [ "$status" -ne 0 ] || [ -n "$found" ]; then
    failed+=("$t")
    echo "fuzz: $t FAILED (exit $status); last lines of $run/$t.log:" >&2
    tail -n 40 "$run/$t.log" >&2
    for f in $found; do
      echo "fuzz: input that caused it: $f (reproduce: $build/bin/$t $f)" >&2
    done
  else
    grep -E '^stat::number_of_executed_(runs|units)' "$run/$t.log" || true
  fi
done

if [ ${#failed[@]} -gt 0 ]; then
  echo "fuzz: findings in: ${failed[*]}" >&2
  exit 1
fi
echo "fuzz: no findings"
