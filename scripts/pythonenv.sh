# Sourced by the scripts: the interpreter a build tree is for.
#
#   zel_python_choose [NAME]
#
# NAME (usually $ZEL_PYTHON) empty: CPython 2.7, found by CMake as always.
# "python3": Debian's /usr/bin/python3 (3.11 on Debian 12, from the
# python3-dev package setup.sh installs), the Python 3 of CI. Any other name
# on PATH, or a path: that interpreter (CPython 3.8 to 3.13, or 2.7).
# Sets:
#   ZEL_PYTHON_EXE      the interpreter itself (a launcher such as a pyenv
#                       shim is resolved), empty for the default
#   ZEL_PYTHON_VERSION  its "X.Y", empty for the default
#   ZEL_PYTHON_SUFFIX   what tree names carry: "" for 2.7 (build/), "-py3"
#                       for Debian's python3 (build-py3/), "-pyX.Y" for
#                       any other Python 3 (build-py3.12/)
#   ZEL_PYTHON_CMAKE    the configure arguments that choose it (an array)
zel_python_choose() {
  local want=${1:-} exe
  ZEL_PYTHON_EXE="" ZEL_PYTHON_VERSION="" ZEL_PYTHON_SUFFIX="" ZEL_PYTHON_CMAKE=()
  [ -n "$want" ] || return 0
  case $want in
    python3) exe=/usr/bin/python3 ;;
    */*) exe=$want ;;
    *) exe=$(command -v "$want") || { echo "ZEL_PYTHON=$want: no such program on PATH" >&2; return 1; } ;;
  esac
  # The interpreter names itself: a launcher script is not what CMake
  # should link against, nor what ThreadSanitizer's preload can enter.
  { read -r ZEL_PYTHON_EXE && read -r ZEL_PYTHON_VERSION; } < <("$exe" -c \
    'import sys; print(sys.executable); print("%d.%d" % sys.version_info[:2])' 2>/dev/null) ||
    { echo "ZEL_PYTHON=$want ($exe) does not run as a Python interpreter" >&2; return 1; }
  if [ "$(readlink -f "$ZEL_PYTHON_EXE")" = "$(readlink -f /usr/bin/python3)" ]; then
    ZEL_PYTHON_SUFFIX=-py3
  elif [ "$ZEL_PYTHON_VERSION" != 2.7 ]; then
    ZEL_PYTHON_SUFFIX=-py$ZEL_PYTHON_VERSION
  fi
  ZEL_PYTHON_CMAKE=("-DZEL_PYTHON=$ZEL_PYTHON_EXE")
}
