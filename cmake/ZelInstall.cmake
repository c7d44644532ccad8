# `cmake --install`: what goes where (docs/install.md), in the components the
# Debian packages are made of (cmake/ZelPackage.cmake):
#
#   runtime    libzel.so.0
#   dev        the headers, libzel.so, zel.pc, the find_package(ZelPy) files
#              every interpreter shares
#   pyruntime  libZelPy<tag>.so.0
#   pydev      libZelPy<tag>.so, zelpy<tag>.pc, the find_package files of this interpreter
#   python     _Zel, _ZelProxy, _ZelServer, the Zel package, PyServer and its modules
#   tools      zelagent<tag>, zelc<tag> and their manual pages
#   doc        README.md and docs/
#
# The demo types (libZelDemo.so, ZelDemo.py) are the tests' and the demo's,
# not something to build on: they do not install.
include(CMakePackageConfigHelpers)

set_target_properties(zel PROPERTIES EXPORT_NAME zel)
set_target_properties(ZelPy PROPERTIES EXPORT_NAME ZelPy${ZEL_PYTHON_VERSION})

install(TARGETS zel EXPORT ZelTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev)
install(TARGETS ZelPy EXPORT ZelPyTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT pyruntime NAMELINK_COMPONENT pydev)

set(_zel_headers
  Activity.h ActivityLoop.h AllocTracker.h Attr.h AttributeIterator.h Builtin.h Clock.h Collection.h CollectionAttr.h
  CollectionIndex.h CollectionIterator.h CollectionQueueAttr.h CollectionSupport.h Demangle.h Dir.h Entity.h
  EntityFieldAttr.h Enum.h Exception.h Fd.h Format.h GenericIf.h HashMapGeneric.h Lock.h NamedEntityOps.h
  NboAttrLog.h Notifiee.h ProcTitle.h PtrInterface.h Strep.h String8.h Trace.h TraceSettings.h TypeOps.h Values.h
  Visibility.h ZelType.h)
list(TRANSFORM _zel_headers PREPEND ${CMAKE_SOURCE_DIR}/Fwk/Cpp/Zel/)
install(FILES ${_zel_headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/Zel COMPONENT dev)
set(_zelpy_headers Backtrace.h Errors.h GifPtr.h Locks.h Module.h PyClient.h PyObjHandle.h Types.h)
list(TRANSFORM _zelpy_headers PREPEND ${CMAKE_SOURCE_DIR}/py/include/ZelPy/)
install(FILES ${_zelpy_headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ZelPy COMPONENT dev)

# Python: _Zel and _ZelProxy are libZelPy itself, reached through links
# relative to the package folder as in the build tree.
file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/install)
foreach(module _Zel _ZelProxy)
  file(CREATE_LINK ${ZEL_INSTALL_PYTHON_TO_LIB}/lib${ZEL_PY_LIB_NAME}.so.0
       ${CMAKE_BINARY_DIR}/install/${module}${ZEL_PY_EXT_SUFFIX} SYMBOLIC)
  install(FILES ${CMAKE_BINARY_DIR}/install/${module}${ZEL_PY_EXT_SUFFIX}
          DESTINATION ${ZEL_INSTALL_PYTHONDIR} COMPONENT python)
endforeach()
install(TARGETS _ZelServer LIBRARY DESTINATION ${ZEL_INSTALL_PYTHONDIR} COMPONENT python)
install(FILES python/Zel/__init__.py DESTINATION ${ZEL_INSTALL_PYTHONDIR}/Zel COMPONENT python)
install(FILES python/PyServer.py python/ZelCompat.py python/ZelConsole.py python/ZelStacks.py python/ZelWatch.py
              python/ZelWire.py
        DESTINATION ${ZEL_INSTALL_PYTHONDIR} COMPONENT python)

install(TARGETS zelagent zelc RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
install(FILES ${ZEL_MAN_PAGES} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)

install(FILES README.md docs/activities.md docs/benchmarks.md docs/collections.md docs/fuzzing.md docs/install.md
              docs/module.md docs/protocol.md docs/python3.md docs/reliability.md docs/runtime.md docs/soak.md
              docs/testing.md docs/zel-package.md
        DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/zelpy COMPONENT doc)

# find_package(ZelPy CONFIG): ZelPyConfig.cmake picks one of the
# interpreters installed (ZelPyPython-<version>.cmake each).
install(EXPORT ZelTargets NAMESPACE ZelPy:: DESTINATION ${ZEL_INSTALL_CMAKEDIR} COMPONENT dev)
install(EXPORT ZelPyTargets NAMESPACE ZelPy:: FILE ZelPyTargets-${ZEL_PYTHON_VERSION}.cmake
        DESTINATION ${ZEL_INSTALL_CMAKEDIR} COMPONENT pydev)
if(ZEL_PYTHON_MAJOR EQUAL 2)
  set(_zel_py_includes ${Python2_INCLUDE_DIRS})
  set(_zel_py_library ${Python2_LIBRARIES})
else()
  set(_zel_py_includes ${Python3_INCLUDE_DIRS})
  set(_zel_py_library ${Python3_LIBRARIES})
endif()
configure_file(cmake/ZelPyConfig.cmake.in install/ZelPyConfig.cmake @ONLY)
configure_file(cmake/ZelPyPython.cmake.in install/ZelPyPython-${ZEL_PYTHON_VERSION}.cmake @ONLY)
write_basic_package_version_file(install/ZelPyConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_BINARY_DIR}/install/ZelPyConfig.cmake ${CMAKE_BINARY_DIR}/install/ZelPyConfigVersion.cmake
        DESTINATION ${ZEL_INSTALL_CMAKEDIR} COMPONENT dev)
install(FILES ${CMAKE_BINARY_DIR}/install/ZelPyPython-${ZEL_PYTHON_VERSION}.cmake
        DESTINATION ${ZEL_INSTALL_CMAKEDIR} COMPONENT pydev)

# pkg-config: zel, and zelpy<tag> (zelpy for 2.7, zelpy3.11 for 3.11).
get_filename_component(_zel_py_libdir ${_zel_py_library} DIRECTORY)
get_filename_component(_zel_py_libname_full ${_zel_py_library} NAME)
string(REGEX REPLACE "^lib(.*)\\.so$" "\\1" _zel_py_libname ${_zel_py_libname_full})
string(JOIN " -I" _zel_py_cflags ${_zel_py_includes})
configure_file(cmake/zel.pc.in install/zel.pc @ONLY)
configure_file(cmake/zelpy.pc.in install/zelpy${ZEL_PY_TAG}.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/install/zel.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
install(FILES ${CMAKE_BINARY_DIR}/install/zelpy${ZEL_PY_TAG}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
        COMPONENT pydev)
