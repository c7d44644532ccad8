# Finds CPython 2.7 with headers and a shared libpython: the interpreter
# named by the PYTHON2 variable (CMake or environment), else the one under
# /root/.pyenv/versions/2.7.18, else python2.7-config on PATH.
# Defines the imported target Python27::Python and PYTHON27_EXECUTABLE.

set(_zel_py_candidates)
if(DEFINED PYTHON2)
  list(APPEND _zel_py_candidates ${PYTHON2})
elseif(DEFINED ENV{PYTHON2})
  list(APPEND _zel_py_candidates $ENV{PYTHON2})
endif()
list(APPEND _zel_py_candidates /root/.pyenv/versions/2.7.18/bin/python2.7)
find_program(_zel_py_config python2.7-config)
if(_zel_py_config)
  get_filename_component(_dir ${_zel_py_config} DIRECTORY)
  list(APPEND _zel_py_candidates ${_dir}/python2.7)
endif()

set(PYTHON27_EXECUTABLE "")
foreach(c ${_zel_py_candidates})
  if(EXISTS ${c})
    execute_process(COMMAND ${c} -c "import sys, sysconfig; print('%d.%d;%s;%s' % (sys.version_info[0], sys.version_info[1], sysconfig.get_paths()['include'], sysconfig.get_config_var('LIBDIR')))"
                    OUTPUT_VARIABLE _out RESULT_VARIABLE _rc OUTPUT_STRIP_TRAILING_WHITESPACE)
    if(_rc EQUAL 0)
      list(GET _out 0 _ver)
      list(GET _out 1 _inc)
      list(GET _out 2 _libdir)
      if(_ver STREQUAL "2.7" AND EXISTS ${_inc}/Python.h AND EXISTS ${_libdir}/libpython2.7.so)
        set(PYTHON27_EXECUTABLE ${c})
        set(PYTHON27_INCLUDE_DIR ${_inc})
        set(PYTHON27_LIBRARY ${_libdir}/libpython2.7.so)
        set(PYTHON27_LIBDIR ${_libdir})
        break()
      endif()
    endif()
  endif()
endforeach()

if(NOT PYTHON27_EXECUTABLE)
  message(FATAL_ERROR
    "CPython 2.7 with headers and a shared libpython2.7.so was not found. Looked for: "
    "the PYTHON2 variable (${PYTHON2}$ENV{PYTHON2}), /root/.pyenv/versions/2.7.18/bin/python2.7, "
    "and python2.7-config on PATH. Set PYTHON2 to a python2.7 interpreter built with --enable-shared.")
endif()
message(STATUS "Python 2.7: ${PYTHON27_EXECUTABLE} (${PYTHON27_LIBRARY})")

add_library(Python27::Python SHARED IMPORTED)
# Python 2.7's headers use `register`, which C++17 and later warn about:
# include them as system headers.
set_target_properties(Python27::Python PROPERTIES
  IMPORTED_LOCATION ${PYTHON27_LIBRARY}
  INTERFACE_SYSTEM_INCLUDE_DIRECTORIES ${PYTHON27_INCLUDE_DIR}
  INTERFACE_INCLUDE_DIRECTORIES ${PYTHON27_INCLUDE_DIR})
