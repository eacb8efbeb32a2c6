# The Debian packages, one for each component of cmake/Install.cmake. scripts/package builds them.

set(CPACK_GENERATOR DEB)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_PACKAGE_NAME quillon)
set(CPACK_PACKAGE_CONTACT "Quillon developers <developers@quillon.example>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_COMPONENTS_ALL platform plugin dev tool)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(exact "(= ${PROJECT_VERSION})")
# A package of its own: the plug-in needs it, and must not bring the tool with it.
set(CPACK_DEBIAN_PLATFORM_PACKAGE_NAME libquillon-platform)
set(CPACK_DEBIAN_PLATFORM_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_PLATFORM_DESCRIPTION
  "television platform for .NET applications on a workstation
 The platform services that the launcher plug-in calls: applications and
 packages, the configuration store, the log and the trace. A device has its own.")

set(CPACK_DEBIAN_PLUGIN_PACKAGE_NAME libquillon-tv-plugin)
set(CPACK_DEBIAN_PLUGIN_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_PLUGIN_DESCRIPTION
  "launcher plug-in for .NET applications on a television platform
 A launcher loads this library into each process that it prepares for a .NET
 application. The library computes what the runtime starts with, prepares the
 process, and decides how a crash ends.")
set(CPACK_DEBIAN_PLUGIN_PACKAGE_DEPENDS "libquillon-platform ${exact}")
# Loaded when a partner signature is first checked, so it is not among the libraries of the file.
set(CPACK_DEBIAN_PLUGIN_PACKAGE_RECOMMENDS libssl3)

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libquillon-tv-plugin-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEV_DESCRIPTION
  "launcher plug-in for .NET applications - headers and documentation
 What launcher authors and integrators need: the headers of the plug-in and
 of the platform, an archive, CMake and pkg-config files, example launchers,
 and the documentation.")
# What the archive is linked with.
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS
  "libquillon-tv-plugin ${exact}, libquillon-platform ${exact}, libcap-dev")

set(CPACK_DEBIAN_TOOL_PACKAGE_NAME quillon)
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION devel)
set(CPACK_COMPONENT_TOOL_DESCRIPTION
  "runs .NET television applications on a workstation as a device does
 The quillon command launches applications in a device root, with the real
 plug-in and the real runtime. A launch pad keeps processes prepared, so that
 launches take milliseconds.")
set(CPACK_DEBIAN_TOOL_PACKAGE_DEPENDS
  "libquillon-tv-plugin ${exact}, libquillon-platform ${exact}")
set(CPACK_DEBIAN_TOOL_PACKAGE_SUGGESTS "dotnet-runtime-10.0 | dotnet-sdk-10.0")

# What Debian's policy asks of every package.
find_program(gzip gzip REQUIRED)
string(TIMESTAMP QUILLON_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)  # or SOURCE_DATE_EPOCH
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} upper)
  set(name ${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
  set(folder ${CMAKE_CURRENT_BINARY_DIR}/${name})
  configure_file(debian/changelog.in ${folder}/changelog @ONLY)
  execute_process(COMMAND ${gzip} -9 -n -f ${folder}/changelog COMMAND_ERROR_IS_FATAL ANY)
  install(FILES debian/copyright ${folder}/changelog.gz
    DESTINATION share/doc/${name} COMPONENT ${component} EXCLUDE_FROM_ALL)
endforeach()
set(CPACK_DEBIAN_PLATFORM_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_SOURCE_DIR}/debian/triggers)
set(CPACK_DEBIAN_PLUGIN_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_SOURCE_DIR}/debian/triggers)
set(CPACK_DEBIAN_TOOL_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_SOURCE_DIR}/debian/triggers)
include(CPack)
