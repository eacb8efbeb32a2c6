# How every target of the project is compiled: link to `quillon-compile`.
#
# Warnings are errors only where CMAKE_COMPILE_WARNING_AS_ERROR is set, which the presets do.

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
  set(CMAKE_BUILD_TYPE RelWithDebInfo CACHE STRING "Build type" FORCE)
endif()

set(QUILLON_SANITIZE "" CACHE STRING "Value for -fsanitize=, for example address,undefined")

option(QUILLON_SANITIZE_TOOLS "With QUILLON_SANITIZE: the launcher and the quillon tool as well" ON)

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

find_package(Threads REQUIRED)
include(CheckCXXSourceCompiles)
include(CheckCXXSourceRuns)

add_library(quillon-compile INTERFACE)
target_compile_options(quillon-compile INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wformat=2 -Wvla
  "$<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor;-Wold-style-cast>"
  # GCC 12 takes std::string's own copies for overlapping ones when it optimises (GCC bug 105329).
  "$<$<AND:$<CXX_COMPILER_ID:GNU>,$<VERSION_LESS:$<CXX_COMPILER_VERSION>,13>>:-Wno-restrict>"
  # A section for each function and variable, for quillon_start_fast().
  "$<$<NOT:$<CONFIG:Debug>>:-ffunction-sections;-fdata-sections>"
  -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=)
target_link_libraries(quillon-compile INTERFACE Threads::Threads)
if(QUILLON_SANITIZE)
  # A target with the property QUILLON_UNINSTRUMENTED is only linked with the sanitizers.
  target_compile_options(quillon-compile INTERFACE
    "$<$<NOT:$<BOOL:$<TARGET_PROPERTY:QUILLON_UNINSTRUMENTED>>>:-fsanitize=${QUILLON_SANITIZE};-fno-sanitize-recover=all;-fno-omit-frame-pointer>")
  target_link_options(quillon-compile INTERFACE -fsanitize=${QUILLON_SANITIZE})
endif()

# quillon_leave_uninstrumented(<folder>): no sanitizer in the targets of that folder of the build.
function(quillon_leave_uninstrumented folder)
  get_property(targets DIRECTORY ${folder} PROPERTY BUILDSYSTEM_TARGETS)
  foreach(target IN LISTS targets)
    set_property(TARGET ${target} PROPERTY QUILLON_UNINSTRUMENTED ON)
  endforeach()
  get_property(folders DIRECTORY ${folder} PROPERTY SUBDIRECTORIES)
  foreach(inner IN LISTS folders)
    quillon_leave_uninstrumented(${inner})
  endforeach()
endfunction()

# quillon_start_fast(<target>): for a program that is started for every launch, and the libraries
# that are loaded with it. Most of a short process's time is page faults, and most of those are
# the C++ library's: of its relocations, and of looking up its names. So the target holds what it
# uses of that library itself, hidden, keeps no section that nothing uses, and has its relocations
# packed (ld(1), "-z pack-relative-relocs") where this machine's dynamic linker can read that.
# The unwinder stays the process's one: the plug-in's exceptions reach the launcher. The sanitizers
# have to see the C++ library's calls.
if(QUILLON_BUILD_WORKSTATION AND NOT CMAKE_CROSSCOMPILING)
  set(CMAKE_REQUIRED_LINK_OPTIONS -static-libstdc++)
  check_cxx_source_compiles(
    "#include <string>\nint main(int n, char** v) { return std::string(v[n - 1]).empty(); }"
    QUILLON_HAS_CXX_ARCHIVE)
  set(CMAKE_REQUIRED_LINK_OPTIONS LINKER:-z,pack-relative-relocs)
  check_cxx_source_runs("int main(); int (*self)() = main; int main() { return self != main; }"
                        QUILLON_HAS_PACKED_RELOCATIONS)
  unset(CMAKE_REQUIRED_LINK_OPTIONS)
endif()
function(quillon_start_fast target)
  if(QUILLON_SANITIZE)
    return()
  endif()
  target_link_options(${target} PRIVATE LINKER:--gc-sections)
  if(QUILLON_HAS_CXX_ARCHIVE)
    target_link_options(${target} PRIVATE
      -static-libstdc++ LINKER:--exclude-libs,libstdc++.a)
  endif()
  if(QUILLON_HAS_PACKED_RELOCATIONS)
    target_link_options(${target} PRIVATE LINKER:-z,pack-relative-relocs)
  endif()
endfunction()
