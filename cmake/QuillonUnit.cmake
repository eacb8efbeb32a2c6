# quillon_unit(<path> <source>...)
#
# Declares one unit of the plug-in, for example quillon_unit(plugin/src/plugin-util a.cc b.cc).
# The unit's log lines carry the file field "<last component of path>.cc" however many files the
# unit is split into. Each unit is compiled twice: with hidden visibility for the shared library,
# and with every function visible for the static archive that unit tests link. With the address
# sanitizer the library takes the archive's objects: its version script hides the same names.

# Here and not in a folder of units: the plug-in and what links its archive use the same target.
find_package(Boost REQUIRED COMPONENTS filesystem)
find_package(OpenSSL 3.0 REQUIRED COMPONENTS Crypto)

set_property(GLOBAL PROPERTY QUILLON_UNITS "")
set(quillon_visibilities hidden default)
if(QUILLON_SANITIZE MATCHES "address")
  set(quillon_visibilities default)
endif()

function(quillon_unit path)
  get_filename_component(unit ${path} NAME)
  set_property(GLOBAL APPEND PROPERTY QUILLON_UNITS ${unit})
  foreach(visibility IN LISTS quillon_visibilities)
    set(target unit-${unit}-${visibility})
    add_library(${target} OBJECT ${ARGN})
    set_target_properties(${target} PROPERTIES
      CXX_VISIBILITY_PRESET ${visibility}
      VISIBILITY_INLINES_HIDDEN $<STREQUAL:${visibility},hidden>)
    target_compile_definitions(${target} PRIVATE
      QUILLON_UNIT_PATH="${path}.cc"
      QUILLON_UNIT_FILE="${unit}.cc"
      QUILLON_PRIVILEGE_NAMESPACE="${QUILLON_PRIVILEGE_NAMESPACE}"
      QUILLON_METADATA_NAMESPACE="${QUILLON_METADATA_NAMESPACE}")
    target_include_directories(${target} PRIVATE
      ${PROJECT_SOURCE_DIR}
      ${PROJECT_SOURCE_DIR}/platform/include
      ${PROJECT_SOURCE_DIR}/plugin/include
      ${PROJECT_SOURCE_DIR}/plugin/include-internal
      ${PROJECT_SOURCE_DIR}/plugin/src)
    target_link_libraries(${target} PRIVATE quillon-compile Boost::filesystem OpenSSL::Crypto)
  endforeach()
endfunction()

# quillon_unit_objects(<variable> hidden|default): the object files of every unit declared so far.
function(quillon_unit_objects variable visibility)
  get_property(units GLOBAL PROPERTY QUILLON_UNITS)
  if(NOT visibility IN_LIST quillon_visibilities)
    set(visibility default)
  endif()
  list(TRANSFORM units REPLACE "(.+)" "$<TARGET_OBJECTS:unit-\\1-${visibility}>")
  set(${variable} ${units} PARENT_SCOPE)
endfunction()
