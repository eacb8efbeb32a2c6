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

add_library(quillon-compile INTERFACE)
target_compile_options(quillon-compile INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wformat=2 -Wvla
  "$<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor;-Wold-style-cast>"
  # GCC 12 takes std::string's own copies for overlapping ones when it optimises (GCC bug 105329).
  "$<$<AND:$<CXX_COMPILER_ID:GNU>,$<VERSION_LESS:$<CXX_COMPILER_VERSION>,13>>:-Wno-restrict>"
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
