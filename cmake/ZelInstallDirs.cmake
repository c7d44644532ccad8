# Where `cmake --install` puts things, decided before the targets so that
# the programs can be told where their installed Python packages are.
#
#   ZEL_PY_TAG              "" on 2.7, "3.11" on 3.11: what the interpreter-bound
#                           files carry in their names (libZelPy3.11.so, zelpy3.11.pc,
#                           zelagent3.11), so that trees for several interpreters
#                           install into one prefix side by side
#   ZEL_INSTALL_PYTHONDIR   the modules and packages, relative to the prefix, as the
#                           interpreter lays out its own packages: lib/python2.7/site-packages,
#                           or Debian's lib/python3/dist-packages for Debian's python3
#   ZEL_INSTALL_CMAKEDIR    the find_package(ZelPy) files
include(GNUInstallDirs)

if(ZEL_PYTHON_MAJOR EQUAL 2)
  set(ZEL_PY_TAG "")
else()
  set(ZEL_PY_TAG ${ZEL_PYTHON_VERSION})
endif()

execute_process(
  COMMAND ${ZEL_PYTHON_EXECUTABLE} -c "import sysconfig
scheme = 'deb_system' if 'deb_system' in sysconfig.get_scheme_names() else 'posix_prefix'
print(sysconfig.get_path('platlib', scheme, vars={'base': '@', 'platbase': '@'})[2:])"
  OUTPUT_VARIABLE _zel_pythondir RESULT_VARIABLE _zel_rc OUTPUT_STRIP_TRAILING_WHITESPACE)
if(NOT _zel_rc EQUAL 0 OR NOT _zel_pythondir)
  message(FATAL_ERROR "${ZEL_PYTHON_EXECUTABLE} did not tell where its packages go.")
endif()
set(ZEL_INSTALL_PYTHONDIR ${_zel_pythondir} CACHE STRING "Where the Python modules and packages install, relative to the prefix")
set(ZEL_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/ZelPy)

# Installed programs and libraries find each other through run paths
# relative to themselves, and an interpreter outside the system folders
# (a private 2.7) through its own folder; the build tree keeps its paths.
set(CMAKE_INSTALL_RPATH_USE_LINK_PATH ON)
file(RELATIVE_PATH ZEL_INSTALL_BIN_TO_LIB /p/${CMAKE_INSTALL_BINDIR} /p/${CMAKE_INSTALL_LIBDIR})
file(RELATIVE_PATH ZEL_INSTALL_BIN_TO_PYTHON /p/${CMAKE_INSTALL_BINDIR} /p/${ZEL_INSTALL_PYTHONDIR})
file(RELATIVE_PATH ZEL_INSTALL_PYTHON_TO_LIB /p/${ZEL_INSTALL_PYTHONDIR} /p/${CMAKE_INSTALL_LIBDIR})
string(REGEX REPLACE "/$" "" ZEL_INSTALL_PYTHON_TO_LIB ${ZEL_INSTALL_PYTHON_TO_LIB})
