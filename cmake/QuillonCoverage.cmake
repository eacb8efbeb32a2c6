# With QUILLON_COVERAGE, clang counts which source regions and branches run. scripts/coverage uses
# it through the preset "coverage". Test code is not instrumented.
#
# The counters must be relocatable, because counters.c maps them from a file, and atomic, because
# processes share them: the count of an outcome is the difference of two counters.

option(QUILLON_COVERAGE "Count what runs, for scripts/coverage; needs clang" OFF)
if(NOT QUILLON_COVERAGE)
  return()
endif()
add_library(quillon-coverage STATIC ${PROJECT_SOURCE_DIR}/tests/coverage/counters.c)
target_compile_definitions(quillon-coverage PRIVATE
  QUILLON_COVERAGE_SOCKET="${CMAKE_BINARY_DIR}/coverage")
target_compile_options(quillon-compile INTERFACE
  "$<$<NOT:$<BOOL:$<TARGET_PROPERTY:QUILLON_UNINSTRUMENTED>>>:-fprofile-instr-generate;-fcoverage-mapping;-fprofile-update=atomic;SHELL:-mllvm -runtime-counter-relocation>")
target_link_options(quillon-compile INTERFACE -fprofile-instr-generate)
target_link_libraries(quillon-compile INTERFACE quillon-coverage)
