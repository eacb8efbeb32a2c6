# Fails on an include that points up, or sideways between two strategies:
#
#   cmake -D ROOT=<source tree> -P floors.cmake
#
# A room is a folder; an include is judged by the rooms of the two files. Headers from outside the
# tree are nobody's business here, and tests and benchmarks may look into every room.

cmake_minimum_required(VERSION 3.25)
set(problems "")

# room(<folder> <room that it may include>...); a room may always include itself.
set(rooms "")
macro(room folder)
  list(APPEND rooms ${folder})
  set(allowed_${folder} ${ARGN})
endmacro()

set(ground platform/include plugin/include)
room(platform/include)
room(plugin/include)
room(util ${ground})
room(util/log ${ground} util)
room(util/zq_utils ${ground} util util/log)
room(util/privilege_checker ${ground} util util/log)

set(services
  plugin/src/plugin-util plugin/src/zq-function-global plugin/src/dotnet-policy-checker
  plugin/src/dotnet-signal-handler plugin/src/dotnet-exception-monitor
  plugin/src/dotnet-backtrace-creator)
set(below_services ${ground} util util/log util/zq_utils util/privilege_checker)
foreach(service IN LISTS services)
  room(${service} ${below_services} ${services})
endforeach()

room(plugin/include-internal ${below_services} ${services})
set(strategies
  plugin/src/plugin-dotnet plugin/src/plugin-dotnet-inhouse plugin/src/plugin-dotnet-inhouse-apitest
  plugin/src/plugin-dotnet-aot plugin/src/dpc-path-manager)
foreach(strategy IN LISTS strategies)
  room(${strategy} ${below_services} ${services} plugin/include-internal)
endforeach()
room(plugin/src/quillon-tv-plugin
  ${below_services} ${services} plugin/include-internal ${strategies})

room(platform/workstation platform/include)
room(platform/zone platform/include)
room(launcher ${ground} tools launcher/launchpad)
room(launcher/launchpad ${ground} tools launcher)
room(tools ${ground} launcher launcher/launchpad)

# The room of a file, by the longest folder that holds it; empty where there is none.
function(room_of file result)
  set(found "")
  cmake_path(GET file PARENT_PATH folder)
  while(folder AND NOT found)
    if(folder IN_LIST rooms)
      set(found ${folder})
    endif()
    cmake_path(GET folder PARENT_PATH folder)
  endwhile()
  set(${result} "${found}" PARENT_SCOPE)
endfunction()

# The file of the tree that an include in `file` means; empty for one from outside.
function(resolve file include result)
  cmake_path(GET file PARENT_PATH own)
  set(found "")
  foreach(folder IN ITEMS
      ${own} . platform/include plugin/include plugin/include-internal plugin/src
      platform/workstation platform/zone)
    if(NOT found AND EXISTS ${ROOT}/${folder}/${include})
      cmake_path(SET found NORMALIZE ${folder}/${include})
    endif()
  endforeach()
  set(${result} "${found}" PARENT_SCOPE)
endfunction()

function(check_include file line)
  string(REGEX REPLACE "^[ \t]*#[ \t]*include[ \t]*[<\"]([^>\"]+)[>\"].*" "\\1" include "${line}")
  resolve(${file} ${include} header)
  room_of(${file} room)
  if(NOT header)
    return()
  endif()
  room_of(${header} target)
  if(NOT target STREQUAL room AND NOT target IN_LIST allowed_${room})
    set(problems ${problems} "${file}: ${room} may not include ${header}" PARENT_SCOPE)
  endif()
endfunction()

file(GLOB_RECURSE files RELATIVE ${ROOT}
  ${ROOT}/platform/*.h ${ROOT}/platform/*.cc ${ROOT}/plugin/*.h ${ROOT}/plugin/*.cc
  ${ROOT}/util/*.h ${ROOT}/util/*.cc ${ROOT}/launcher/*.h ${ROOT}/launcher/*.cc
  ${ROOT}/tools/*.h ${ROOT}/tools/*.cc)
set(checked 0)
foreach(file IN LISTS files)
  room_of(${file} room)
  if(NOT room)
    list(APPEND problems "${file}: its folder has no floor in floors.cmake")
    continue()
  endif()
  file(STRINGS ${ROOT}/${file} lines REGEX "^[ \t]*#[ \t]*include[ \t]*[<\"]")
  foreach(line IN LISTS lines)
    check_include(${file} "${line}")
    math(EXPR checked "${checked} + 1")
  endforeach()
endforeach()

if(problems)
  list(JOIN problems "\n  " text)
  message(FATAL_ERROR "includes that point the wrong way:\n  ${text}")
endif()
list(LENGTH files count)
if(NOT count OR NOT checked)
  message(FATAL_ERROR "nothing to check under ${ROOT}")
endif()
message(STATUS "${checked} includes of ${count} files point down")
