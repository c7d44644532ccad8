# The interpreter this tree is built for, chosen at configure time.
#
#   (default)                     CPython 2.7: the PYTHON2 variable (CMake or
#                                 environment), else /root/.pyenv/versions/2.7.18,
#                                 else python2.7-config on PATH
#   -DZEL_PYTHON=/path/python3.X  CPython 3.8 to 3.13, a shared-library build
#                                 with the interpreter lock (ZEL_PYTHON may
#                                 also name a 2.7 interpreter, or a program on PATH)
#
# Defines the target ZelPython::Python (headers and libpython, for the module
# library, the extension modules and the programs that embed the interpreter) and:
#   ZEL_PYTHON_EXECUTABLE   the interpreter (build/zelpython runs it)
#   ZEL_PYTHON_VERSION      "2.7", "3.11", ...
#   ZEL_PYTHON_MAJOR        2 or 3
#   ZEL_PYTHON_LIBDIR       the folder of its libpython
#   ZEL_PY_EXT_SUFFIX       file-name suffix of an extension module: ".so" on 2.7,
#                           the interpreter's own (".cpython-311-x86_64-linux-gnu.so") on 3
#   ZEL_PY_LIB_NAME         output name of the module library: "ZelPy" on 2.7
#                           (libZelPy.so.0), "ZelPy3.11" on 3.11 (libZelPy3.11.so.0)

# Asks an interpreter for what the choice depends on; sets _zel_py_<field>
# for each, or leaves _zel_py_ok false when it cannot run.
function(_zel_python_probe exe)
  set(_zel_py_ok FALSE PARENT_SCOPE)
  execute_process(
    COMMAND ${exe} -c "import sys, sysconfig
g = sysconfig.get_config_var
print(';'.join(str(x) for x in (sys.version_info[0], sys.version_info[1], g('Py_ENABLE_SHARED'),
      g('Py_GIL_DISABLED'), g('EXT_SUFFIX') or g('SO'), g('LIBDIR'))))"
    OUTPUT_VARIABLE out RESULT_VARIABLE rc ERROR_QUIET OUTPUT_STRIP_TRAILING_WHITESPACE)
  if(NOT rc EQUAL 0)
    return()
  endif()
  list(GET out 0 major)
  list(GET out 1 minor)
  list(GET out 2 shared)
  list(GET out 3 nogil)
  list(GET out 4 suffix)
  list(GET out 5 libdir)
  set(_zel_py_ok TRUE PARENT_SCOPE)
  set(_zel_py_version "${major}.${minor}" PARENT_SCOPE)
  set(_zel_py_major "${major}" PARENT_SCOPE)
  set(_zel_py_minor "${minor}" PARENT_SCOPE)
  set(_zel_py_shared "${shared}" PARENT_SCOPE)
  set(_zel_py_nogil "${nogil}" PARENT_SCOPE)
  set(_zel_py_suffix "${suffix}" PARENT_SCOPE)
  set(_zel_py_libdir "${libdir}" PARENT_SCOPE)
endfunction()

set(ZEL_PYTHON "" CACHE STRING "Interpreter to build against (empty: CPython 2.7 as found by the default search)")

set(_zel_py_candidates)
if(ZEL_PYTHON)
  set(_zel_py_given ${ZEL_PYTHON})
  if(NOT IS_ABSOLUTE ${_zel_py_given})
    find_program(_zel_py_given_path NAMES ${ZEL_PYTHON} NO_CACHE)
    if(NOT _zel_py_given_path)
      message(FATAL_ERROR "ZEL_PYTHON=${ZEL_PYTHON}: no such program on PATH.")
    endif()
    set(_zel_py_given ${_zel_py_given_path})
  endif()
  list(APPEND _zel_py_candidates ${_zel_py_given})
else()
  if(DEFINED PYTHON2)
    list(APPEND _zel_py_candidates ${PYTHON2})
  elseif(DEFINED ENV{PYTHON2})
    list(APPEND _zel_py_candidates $ENV{PYTHON2})
  endif()
  list(APPEND _zel_py_candidates /root/.pyenv/versions/2.7.18/bin/python2.7)
  find_program(_zel_py_config python2.7-config NO_CACHE)
  if(_zel_py_config)
    get_filename_component(_dir ${_zel_py_config} DIRECTORY)
    list(APPEND _zel_py_candidates ${_dir}/python2.7)
  endif()
endif()

set(ZEL_PYTHON_EXECUTABLE "")
foreach(c ${_zel_py_candidates})
  if(EXISTS ${c})
    _zel_python_probe(${c})
    if(ZEL_PYTHON AND NOT _zel_py_ok)
      message(FATAL_ERROR "ZEL_PYTHON=${c} does not run as a Python interpreter.")
    endif()
    if(_zel_py_ok AND (ZEL_PYTHON OR _zel_py_version STREQUAL "2.7") AND _zel_py_shared STREQUAL "1")
      set(ZEL_PYTHON_EXECUTABLE ${c})
      break()
    endif()
  endif()
endforeach()

if(ZEL_PYTHON)
  if(NOT _zel_py_ok)
    message(FATAL_ERROR "ZEL_PYTHON=${ZEL_PYTHON} was not found.")
  endif()
  # A free-threaded build has no interpreter lock: the lock protocol between
  # it and the activity lock is what keeps framework state consistent.
  if(_zel_py_nogil STREQUAL "1")
    message(FATAL_ERROR
      "ZEL_PYTHON=${ZEL_PYTHON} is a free-threaded (no-GIL) interpreter; ZelPy needs the interpreter lock. "
      "Choose a default build of CPython ${_zel_py_version}.")
  endif()
  if(NOT (_zel_py_version STREQUAL "2.7" OR (_zel_py_major EQUAL 3 AND _zel_py_minor GREATER_EQUAL 8
                                             AND _zel_py_minor LESS_EQUAL 13)))
    message(FATAL_ERROR "ZEL_PYTHON=${ZEL_PYTHON} is Python ${_zel_py_version}; ZelPy builds against 2.7 or 3.8 to 3.13.")
  endif()
  if(NOT _zel_py_shared STREQUAL "1")
    message(FATAL_ERROR
      "ZEL_PYTHON=${ZEL_PYTHON} was not built as a shared library (Py_ENABLE_SHARED is not 1); "
      "ZelPy links libpython. Build it with --enable-shared.")
  endif()
elseif(NOT ZEL_PYTHON_EXECUTABLE)
  message(FATAL_ERROR
    "CPython 2.7 with headers and a shared libpython2.7.so was not found. Looked for: "
    "the PYTHON2 variable (${PYTHON2}$ENV{PYTHON2}), /root/.pyenv/versions/2.7.18/bin/python2.7, "
    "and python2.7-config on PATH. Set PYTHON2 to a python2.7 interpreter built with --enable-shared, "
    "or ZEL_PYTHON to a python3.8 to 3.13.")
endif()

set(ZEL_PYTHON_VERSION ${_zel_py_version})
set(ZEL_PYTHON_MAJOR ${_zel_py_major})
set(ZEL_PYTHON_LIBDIR ${_zel_py_libdir})

add_library(zel_python INTERFACE)
add_library(ZelPython::Python ALIAS zel_python)
# "#" formats take a Py_ssize_t length (3.10 refuses them otherwise).
target_compile_definitions(zel_python INTERFACE PY_SSIZE_T_CLEAN)
if(ZEL_PYTHON_MAJOR EQUAL 2)
  set(Python2_EXECUTABLE ${ZEL_PYTHON_EXECUTABLE})
  find_package(Python2 2.7 EXACT REQUIRED COMPONENTS Interpreter Development)
  target_link_libraries(zel_python INTERFACE Python2::Python)
  set(ZEL_PY_EXT_SUFFIX .so)
  set(ZEL_PY_LIB_NAME ZelPy)
else()
  set(Python3_EXECUTABLE ${ZEL_PYTHON_EXECUTABLE})
  find_package(Python3 ${ZEL_PYTHON_VERSION} EXACT REQUIRED COMPONENTS Interpreter Development.Embed)
  target_link_libraries(zel_python INTERFACE Python3::Python)
  set(ZEL_PY_EXT_SUFFIX ${_zel_py_suffix})
  set(ZEL_PY_LIB_NAME ZelPy${ZEL_PYTHON_VERSION})
endif()
message(STATUS "Python ${ZEL_PYTHON_VERSION}: ${ZEL_PYTHON_EXECUTABLE} (libraries in ${ZEL_PYTHON_LIBDIR}, "
               "modules *${ZEL_PY_EXT_SUFFIX}, lib${ZEL_PY_LIB_NAME}.so.0)")

# An extension module of this tree: a MODULE library named as the interpreter
# looks for it (`_Name.so` on 2.7, `_Name.cpython-311-x86_64-linux-gnu.so` on 3.11).
function(zel_python_module target)
  set_target_properties(${target} PROPERTIES PREFIX "" SUFFIX ${ZEL_PY_EXT_SUFFIX})
  target_link_libraries(${target} PRIVATE ZelPython::Python)
endfunction()
