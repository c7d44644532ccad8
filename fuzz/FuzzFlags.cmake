# Compiler flags of the fuzzing build (ZEL_FUZZ=ON): every library of the
# tree is instrumented for libFuzzer's coverage feedback and built with
# AddressSanitizer and UndefinedBehaviorSanitizer; the fuzz executables
# (fuzz/CMakeLists.txt) add libFuzzer's own main.
if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  message(FATAL_ERROR "ZEL_FUZZ needs clang (libFuzzer), e.g. -DCMAKE_CXX_COMPILER=clang++-14 "
                      "-DCMAKE_C_COMPILER=clang-14; the compiler is ${CMAKE_CXX_COMPILER_ID}")
endif()
# -fno-sanitize-recover=undefined: undefined behaviour aborts the run, so
#   libFuzzer records it as a crash with its input rather than a log line.
# -fno-omit-frame-pointer: readable stacks in the reports.
add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=undefined
                    -fno-omit-frame-pointer)
add_link_options(-fsanitize=address,undefined)
