# `cpack` in a tree for a Debian interpreter (Debian's python3): one .deb
# per install component, named as Debian names such packages, with the
# dependencies of what they link found by dpkg-shlibdeps. A tree for an
# interpreter no Debian package provides (a private CPython 2.7) offers no
# packages: theirs would depend on something apt cannot install.
list(GET _zel_py_includes 0 _zel_py_include)
file(REAL_PATH ${_zel_py_include}/Python.h _zel_py_header)
execute_process(COMMAND dpkg-query -S ${_zel_py_header}
                OUTPUT_VARIABLE _zel_py_devpkg RESULT_VARIABLE _zel_rc ERROR_QUIET OUTPUT_STRIP_TRAILING_WHITESPACE)
set(ZEL_DEBS_OFFERED OFF)
if(NOT _zel_rc EQUAL 0)
  message(STATUS "Debian packages: not offered (Python ${ZEL_PYTHON_VERSION} is not Debian's)")
  return()
endif()
string(REGEX REPLACE ":.*" "" _zel_py_devpkg "${_zel_py_devpkg}")
set(ZEL_DEBS_OFFERED ON)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME zelpy)
set(CPACK_PACKAGE_VENDOR "ZelPy developers")
set(CPACK_PACKAGE_CONTACT "ZelPy developers <zelpy@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Zel object framework with an embedded CPython")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Each package is made apart: dpkg-shlibdeps finds our own libraries in the
# build tree, and the dependencies between our packages are the components'.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${ZEL_LIB_DIR})
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_COMPONENTS_ALL runtime dev pyruntime pydev python tools doc)

# Library packages carry the SONAME's number; one ending in a digit
# (libZelPy3.11) takes a dash before it.
if(ZEL_PY_TAG)
  set(_zel_pylib libzelpy${ZEL_PY_TAG}-0)
  set(_zel_pymod python3-zelpy)
else()
  set(_zel_pylib libzelpy0)
  set(_zel_pymod python-zelpy)
endif()
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libzel0)
set(CPACK_DEBIAN_DEV_PACKAGE_NAME libzel-dev)
set(CPACK_DEBIAN_PYRUNTIME_PACKAGE_NAME ${_zel_pylib})
set(CPACK_DEBIAN_PYDEV_PACKAGE_NAME libzelpy${ZEL_PY_TAG}-dev)
set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME ${_zel_pymod})
set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME zelpy${ZEL_PY_TAG}-tools)
set(CPACK_DEBIAN_DOC_PACKAGE_NAME zelpy-doc)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PYRUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_PYDEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_DOC_PACKAGE_SECTION doc)
set(CPACK_DEBIAN_DOC_PACKAGE_ARCHITECTURE all)
# What nothing links but the files need: the headers include Boost's and
# the interpreter's, and the modules run in the interpreter.
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "libboost-dev")
set(CPACK_DEBIAN_PYDEV_PACKAGE_DEPENDS "${_zel_py_devpkg}")
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "python${ZEL_PYTHON_VERSION}")

include(CPack)
cpack_add_component(runtime DESCRIPTION "Zel framework runtime library")
cpack_add_component(dev DEPENDS runtime DESCRIPTION "Zel framework and ZelPy headers, CMake and pkg-config files")
cpack_add_component(pyruntime DEPENDS runtime DESCRIPTION "ZelPy library for Python ${ZEL_PYTHON_VERSION}")
cpack_add_component(pydev DEPENDS dev pyruntime DESCRIPTION "ZelPy development files for Python ${ZEL_PYTHON_VERSION}")
cpack_add_component(python DEPENDS pyruntime DESCRIPTION "Zel package and PyServer for Python ${ZEL_PYTHON_VERSION}")
cpack_add_component(tools DEPENDS pyruntime python DESCRIPTION "zelagent and zelc for Python ${ZEL_PYTHON_VERSION}")
cpack_add_component(doc DESCRIPTION "ZelPy documentation")
