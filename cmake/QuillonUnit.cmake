# quillon_unit(<path> <source>... [EXPORTS <source>...] [ARCHIVE_ONLY <source>...])
#
# Declares one unit of the plug-in, for example quillon_unit(plugin/src/plugin-util a.cc b.cc). The
# unit's log lines have the file field "<last component of path>.cc", even if the unit consists of
# several files. The shared library and the archive for unit tests are built from the same objects.
# The library hides their symbols, except those that its version script names: the sources after
# EXPORTS define them, and have the debug information of their types, which scripts/abi reads. The
# library does not contain the sources after ARCHIVE_ONLY.

# Defined here instead of in a unit's folder, because the plug-in and the users of its archive link
# the same target.
find_package(Boost REQUIRED COMPONENTS filesystem)
find_package(OpenSSL 3.0 REQUIRED COMPONENTS Crypto)

set_property(GLOBAL PROPERTY QUILLON_UNITS "")
set_property(GLOBAL PROPERTY QUILLON_ARCHIVE_UNITS "")

function(quillon_unit path)
  cmake_parse_arguments(arg "" "" "EXPORTS;ARCHIVE_ONLY" ${ARGN})
  get_filename_component(unit ${path} NAME)
  quillon_unit_library(${path} ${unit} ${arg_UNPARSED_ARGUMENTS} ${arg_EXPORTS})
  if(arg_EXPORTS)
    set_source_files_properties(${arg_EXPORTS}
      PROPERTIES COMPILE_OPTIONS $<$<CONFIG:Debug>:-g2>)
  endif()
  set_property(GLOBAL APPEND PROPERTY QUILLON_UNITS ${unit})
  if(arg_ARCHIVE_ONLY)
    quillon_unit_library(${path} ${unit}-archive ${arg_ARCHIVE_ONLY})
    set_property(GLOBAL APPEND PROPERTY QUILLON_ARCHIVE_UNITS ${unit}-archive)
  endif()
endfunction()

# quillon_unit_library(<path> <name> <source>...): the objects of sources of a unit.
function(quillon_unit_library path name)
  get_filename_component(unit ${path} NAME)
  set(target unit-${name})
  add_library(${target} OBJECT ${ARGN})
  set_target_properties(${target} PROPERTIES
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON)
  # Inline variables as weak symbols, which can be made local in the archive for launchers.
  target_compile_options(${target} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-fno-gnu-unique>)
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
endfunction()

# quillon_unit_objects(<variable> <property>): the object files of every unit in a global property.
function(quillon_unit_objects variable property)
  get_property(units GLOBAL PROPERTY ${property})
  list(TRANSFORM units REPLACE "(.+)" "$<TARGET_OBJECTS:unit-\\1>")
  set(${variable} ${units} PARENT_SCOPE)
endfunction()
