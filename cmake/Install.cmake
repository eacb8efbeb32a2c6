# `cmake --install` installs the plug-in, the headers of its two interfaces, a CMake package, a
# pkg-config file and the documentation. If they were built, it also installs the workstation
# platform and the quillon tool. Everything can be installed to any prefix and moved afterwards.
#
# The components are those of the Debian packages: "plugin", "platform" for the workstation's
# platform library, "dev" for what builds against them, and "tool" for the quillon tool.

include(CMakePackageConfigHelpers)

# For launchers that load the plug-in with dlopen(3).
add_library(quillon-tv-plugin-headers INTERFACE)
set_target_properties(quillon-tv-plugin-headers PROPERTIES EXPORT_NAME headers)
target_include_directories(quillon-tv-plugin-headers
  INTERFACE "$<INSTALL_INTERFACE:${QUILLON_INSTALLED_HEADERS}>")

if(QUILLON_BUILD_WORKSTATION)
  install(TARGETS quillon RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tool)
  install(TARGETS quillon-program
    RUNTIME DESTINATION libexec COMPONENT tool)  # where the front looks for it
  install(TARGETS quillon-commands quillon-crypto-commands
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT tool)
  # The launch pad's managed side, and what device roots get, if there is an SDK to build them.
  get_target_property(assemblies managed QUILLON_ASSEMBLIES_ARE_BUILT)
  if(assemblies)
    install(FILES
      ${CMAKE_BINARY_DIR}/lib/quillon/Quillon.Launchpad.dll
      ${CMAKE_BINARY_DIR}/lib/quillon/Preload.dll
      DESTINATION ${CMAKE_INSTALL_LIBDIR}/quillon COMPONENT tool)
  endif()
  # Nothing links it; the quillon tool copies it into device roots.
  install(TARGETS quillon-platform-zone
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/quillon COMPONENT tool NAMELINK_SKIP)
  install(FILES platform/workstation/include/workstation/process_registration.h
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/quillon/workstation COMPONENT dev)
  install(TARGETS quillon-platform EXPORT quillon-tv-plugin-targets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT platform)
endif()
install(TARGETS quillon-tv-plugin quillon-tv-plugin-archive quillon-tv-plugin-headers
  EXPORT quillon-tv-plugin-targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT plugin
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev)
install(FILES plugin/include/quillon_tv_plugin.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev)
install(DIRECTORY platform/include/platform
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/quillon COMPONENT dev)
install(DIRECTORY docs examples DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT dev)
install(FILES README.md CHANGELOG.md CONTRIBUTING.md LICENSE
  DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT dev)

set(package_directory ${CMAKE_INSTALL_LIBDIR}/cmake/quillon-tv-plugin)
install(EXPORT quillon-tv-plugin-targets
  NAMESPACE quillon-tv-plugin::
  FILE quillon-tv-plugin-targets.cmake
  DESTINATION ${package_directory} COMPONENT dev)
configure_package_config_file(
  cmake/quillon-tv-plugin-config.cmake.in ${CMAKE_BINARY_DIR}/quillon-tv-plugin-config.cmake
  INSTALL_DESTINATION ${package_directory})
write_basic_package_version_file(
  ${CMAKE_BINARY_DIR}/quillon-tv-plugin-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES
  ${CMAKE_BINARY_DIR}/quillon-tv-plugin-config.cmake
  ${CMAKE_BINARY_DIR}/quillon-tv-plugin-config-version.cmake
  DESTINATION ${package_directory} COMPONENT dev)

# pkg-config replaces "pcfiledir" by the folder of the file, wherever that is. A folder that is
# configured as an absolute path does not move.
set(pc_folder ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
if(IS_ABSOLUTE ${pc_folder})
  set(pc_prefix ${CMAKE_INSTALL_PREFIX})
else()
  file(RELATIVE_PATH pc_prefix /${pc_folder} /)
  string(PREPEND pc_prefix "\${pcfiledir}/")
endif()
foreach(folder LIBDIR INCLUDEDIR)
  if(IS_ABSOLUTE ${CMAKE_INSTALL_${folder}})
    set(pc_${folder} ${CMAKE_INSTALL_${folder}})
  else()
    set(pc_${folder} "\${prefix}/${CMAKE_INSTALL_${folder}}")
  endif()
endforeach()
set(pc_libraries -lquillon-tv-plugin)
list(TRANSFORM QUILLON_ARCHIVE_LIBRARIES PREPEND "-l" OUTPUT_VARIABLE pc_archive_libraries)
list(JOIN pc_archive_libraries " " pc_archive_libraries)
if(QUILLON_BUILD_WORKSTATION)
  # First, because its prctl() must precede that of the C library in the symbol lookup. And after
  # the archive, for linkers that drop a library that nothing before it needs.
  string(PREPEND pc_libraries "-lquillon-platform ")
  string(PREPEND pc_archive_libraries "-lquillon-platform ")
endif()
configure_file(cmake/quillon-tv-plugin.pc.in ${CMAKE_BINARY_DIR}/quillon-tv-plugin.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/quillon-tv-plugin.pc DESTINATION ${pc_folder} COMPONENT dev)
