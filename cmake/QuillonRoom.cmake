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

# The headers of the device's, the plug-in's and the workstation platform's interface, for targets
# that do not link the library behind it.
foreach(interface platform plugin platform/workstation)
  get_filename_component(name ${interface} NAME)
  add_library(quillon-${name}-interface INTERFACE)
  add_library(quillon::${name}-interface ALIAS quillon-${name}-interface)
  target_include_directories(quillon-${name}-interface
    INTERFACE ${PROJECT_SOURCE_DIR}/${interface}/include)
endforeach()
