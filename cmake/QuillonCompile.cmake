# Compile options of all targets: link to `quillon-compile`.
#
# Warnings are errors only if CMAKE_COMPILE_WARNING_AS_ERROR is set, as in the presets.

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
  # GCC 12 warns falsely about overlapping copies in std::string when it optimises (GCC bug 105329).
  "$<$<AND:$<CXX_COMPILER_ID:GNU>,$<VERSION_LESS:$<CXX_COMPILER_VERSION>,13>>:-Wno-restrict>"
  # A section for each function and variable, for quillon_start_fast().
  "$<$<NOT:$<CONFIG:Debug>>:-ffunction-sections;-fdata-sections>"
  -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=)
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  # Otherwise stat(2) and readdir(3) fail for a file of more than 2 GiB, for an inode number above
  # 2^32, and for a file time after January 2038.
  target_compile_definitions(quillon-compile INTERFACE _FILE_OFFSET_BITS=64 _TIME_BITS=64)
endif()
target_link_libraries(quillon-compile INTERFACE Threads::Threads)
if(QUILLON_SANITIZE)
  # A target with the property QUILLON_UNINSTRUMENTED is linked, but not compiled with the
  # sanitizers.
  target_compile_options(quillon-compile INTERFACE
    "$<$<NOT:$<BOOL:$<TARGET_PROPERTY:QUILLON_UNINSTRUMENTED>>>:-fsanitize=${QUILLON_SANITIZE};-fno-sanitize-recover=all;-fno-omit-frame-pointer>")
  target_link_options(quillon-compile INTERFACE -fsanitize=${QUILLON_SANITIZE})
endif()

# quillon_leave_uninstrumented(<folder>): compiles the targets of a source folder without
# sanitizers.
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

# quillon_start_fast(<target>): reduces the start-up time of a program that every launch starts, or
# of a library that it loads. A short process spends most of its time in page faults, most of them
# for the relocations and symbol lookups of the C++ library. So the target links that library
# statically with hidden symbols, drops unused sections, and packs its relocations (ld(1), "-z
# pack-relative-relocs") if this machine's dynamic linker supports it. The process keeps one shared
# unwinder, because exceptions of the plug-in reach the launcher. Has no effect with sanitizers,
# which must intercept the C++ library's calls.
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

# quillon_link_statically(<target>): links a program against the static C and C++ libraries, so that
# it starts without a dynamic linker. It keeps a random address layout (-static-pie). Such a program
# must not use dlopen(3) or the name service. Without static libraries it is linked as by
# quillon_start_fast(), and so it is with sanitizers, whose run-time libraries need a dynamic linker.
if(QUILLON_SANITIZE)
  set(QUILLON_HAS_STATIC_LIBRARIES OFF)
elseif(QUILLON_BUILD_WORKSTATION)
  set(CMAKE_REQUIRED_FLAGS -fPIE)
  set(CMAKE_REQUIRED_LINK_OPTIONS -static-pie)
  check_cxx_source_compiles(
    "#include <string>\nint main(int n, char** v) { return std::string(v[n - 1]).empty(); }"
    QUILLON_HAS_STATIC_LIBRARIES)
  unset(CMAKE_REQUIRED_FLAGS)
  unset(CMAKE_REQUIRED_LINK_OPTIONS)
  if(NOT QUILLON_HAS_STATIC_LIBRARIES)
    message(STATUS "no static C and C++ libraries: quillon links the shared ones and starts slower")
  endif()
endif()
function(quillon_link_statically target)
  if(NOT QUILLON_HAS_STATIC_LIBRARIES)
    quillon_start_fast(${target})
    return()
  endif()
  target_link_options(${target} PRIVATE -static-pie LINKER:--gc-sections)
endfunction()
