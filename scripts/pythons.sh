#!/usr/bin/env bash
# Builds a tree for each CPython 3.8 to 3.13 and runs the suite in it (the
# Python tests, and the native module tests, which embed the interpreter),
# then prints one table of results. Not a stage of ./run-tests.sh, which
# checks Debian's Python 3 only.
#
#   scripts/pythons.sh                  every 3.8 to 3.13 under ~/.pyenv/versions
#   scripts/pythons.sh PYTHON...        the interpreters given (paths or names)
#
# Trees: build-pythons/X.Y.Z ($ZEL_PYTHONS_BUILD), kept for the next run;
# each one's log is its pythons.log. Exit status 0 when every interpreter
# passed, 1 otherwise. More arguments for ctest: ZEL_PYTHONS_CTEST (for
# example "-L python").
set -uo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
trees=${ZEL_PYTHONS_BUILD:-$root/build-pythons}
. "$root/scripts/pythonenv.sh"

pythons=("$@")
if [ ${#pythons[@]} -eq 0 ]; then
  # In version order: 3.8 before 3.10.
  for dir in $(printf '%s\n' "${PYENV_ROOT:-$HOME/.pyenv}"/versions/3.* | sort -V); do
    case ${dir##*/} in
      3.8.* | 3.9.* | 3.1[0-3].*) [ -x "$dir/bin/python3" ] && pythons+=("$dir/bin/python3") ;;
    esac
  done
fi
if [ ${#pythons[@]} -eq 0 ]; then
  echo "pythons: no CPython 3.8 to 3.13 found under ${PYENV_ROOT:-$HOME/.pyenv}/versions; name some" >&2
  exit 2
fi

# Each tree compiles the runtime alike: a compiler cache, when there is one, does it once.
launcher=()
if command -v ccache >/dev/null; then
  launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)
fi

rows=()
failed=0
for want in "${pythons[@]}"; do
  start=$SECONDS
  if ! zel_python_choose "$want" 2>/dev/null; then
    rows+=("$(printf '%-8s %-8s %-44s %5ss  %s' '?' 'FAILED' "$want" 0 'does not run')")
    failed=1
    continue
  fi
  full=$("$ZEL_PYTHON_EXE" -c 'import platform; print(platform.python_version())')
  tree=$trees/$full
  log=$tree/pythons.log
  mkdir -p "$tree"
  echo "pythons: Python $full ($ZEL_PYTHON_EXE) in $tree" >&2
  verdict=FAILED
  if ! cmake -S "$root" -B "$tree" -G Ninja -DZEL_WERROR=ON "${ZEL_PYTHON_CMAKE[@]}" "${launcher[@]}" >"$log" 2>&1; then
    what="configure failed"
  elif ! ninja -C "$tree" -j"${ZEL_JOBS:-2}" >>"$log" 2>&1; then
    what="build failed"
  else
    # shellcheck disable=SC2086  # one argument per word
    (cd "$tree" && ctest -j2 --output-on-failure ${ZEL_PYTHONS_CTEST:-}) >>"$log" 2>&1
    what=$(grep -E '^[0-9]+% tests passed' "$log" | tail -n 1)
    case $what in
      100%*) verdict=passed ;;
      "") what="ctest did not finish" ;;
      *) what="$what: $(sed -n 's/^[[:space:]]*[0-9]* - \([^ ]*\) .*/\1/p' "$log" | tr '\n' ' ')" ;;
    esac
  fi
  if [ $verdict = FAILED ]; then
    failed=1
    echo "pythons: Python $full $what; the end of $log:" >&2
    tail -n 30 "$log" >&2
  fi
  rows+=("$(printf '%-8s %-8s %-44s %5ss  %s' "$full" "$verdict" "$ZEL_PYTHON_EXE" $((SECONDS - start)) "$what")")
done

printf '%-8s %-8s %-44s %6s  %s\n' Python verdict interpreter time result
printf '%s\n' "${rows[@]}"
exit $failed
