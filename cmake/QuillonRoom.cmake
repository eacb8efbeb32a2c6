# quillon_room(<folder> SOURCES <file>... [PUBLIC <library>...] [PRIVATE <library>...])
#
# The library of one folder of the program. For example, quillon_room(host/runtime ...) makes the
# target quillon-host-runtime with the alias quillon::host-runtime. It compiles only sources of its
# own folder. Its headers are included by their path from the top of the tree. PUBLIC lists the
# libraries whose headers its own headers include, PRIVATE those that only its sources include.

find_package(tl-expected REQUIRED)

function(quillon_room folder)
  cmake_parse_arguments(arg "" "" "SOURCES;PUBLIC;PRIVATE" ${ARGN})
  string(REPLACE "/" "-" name ${folder})
  set(target quillon-${name})
  add_library(${target} STATIC ${arg_SOURCES})
  add_library(quillon::${name} ALIAS ${target})
  target_compile_features(${target} PUBLIC cxx_std_20)
  target_include_directories(${target} PUBLIC ${PROJECT_SOURCE_DIR})
  target_link_libraries(${target}
    PUBLIC tl::expected ${arg_PUBLIC}
    PRIVATE quillon-compile ${arg_PRIVATE})
endfunction()

# The headers of the device's and the plug-in's interface.
foreach(interface platform plugin)
  add_library(quillon-${interface}-interface INTERFACE)
  add_library(quillon::${interface}-interface ALIAS quillon-${interface}-interface)
  target_include_directories(quillon-${interface}-interface
    INTERFACE ${PROJECT_SOURCE_DIR}/${interface}/include)
endforeach()
