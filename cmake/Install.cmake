# `cmake --install` installs the plug-in, the headers of its two interfaces, a CMake package, a
# pkg-config file and the documentation. If they were built, it also installs the workstation
# platform and the quillon tool. Everything can be installed to any prefix and moved afterwards.

include(CMakePackageConfigHelpers)

# For launchers that load the plug-in with dlopen(3).
add_library(quillon-tv-plugin-headers INTERFACE)
set_target_properties(quillon-tv-plugin-headers PROPERTIES EXPORT_NAME headers)
target_include_directories(quillon-tv-plugin-headers
  INTERFACE "$<INSTALL_INTERFACE:${QUILLON_INSTALLED_HEADERS}>")

set(targets quillon-tv-plugin quillon-tv-plugin-headers)
if(QUILLON_BUILD_WORKSTATION)
  list(APPEND targets quillon-platform)
  install(TARGETS quillon RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  install(TARGETS quillon-program RUNTIME DESTINATION libexec)  # where the front looks for it
  install(TARGETS quillon-commands quillon-crypto-commands
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
  # The launch pad's managed side, and what device roots get, if there was an SDK to build them.
  install(FILES
    ${CMAKE_BINARY_DIR}/lib/quillon/Quillon.Launchpad.dll
    ${CMAKE_BINARY_DIR}/lib/quillon/Preload.dll
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/quillon OPTIONAL)
  # Nothing links it; the quillon tool copies it into device roots.
  install(TARGETS quillon-platform-zone LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} NAMELINK_SKIP)
  install(FILES platform/workstation/include/workstation/process_registration.h
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/quillon/workstation)
endif()
install(TARGETS ${targets} EXPORT quillon-tv-plugin-targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES plugin/include/quillon_tv_plugin.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY platform/include/platform DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/quillon)
install(DIRECTORY docs examples DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES README.md CHANGELOG.md LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR})

set(package_directory ${CMAKE_INSTALL_LIBDIR}/cmake/quillon-tv-plugin)
install(EXPORT quillon-tv-plugin-targets
  NAMESPACE quillon-tv-plugin::
  FILE quillon-tv-plugin-targets.cmake
  DESTINATION ${package_directory})
configure_package_config_file(
  cmake/quillon-tv-plugin-config.cmake.in ${CMAKE_BINARY_DIR}/quillon-tv-plugin-config.cmake
  INSTALL_DESTINATION ${package_directory})
write_basic_package_version_file(
  ${CMAKE_BINARY_DIR}/quillon-tv-plugin-config-version.cmake COMPATIBILITY SameMinorVersion)
install(FILES
  ${CMAKE_BINARY_DIR}/quillon-tv-plugin-config.cmake
  ${CMAKE_BINARY_DIR}/quillon-tv-plugin-config-version.cmake
  DESTINATION ${package_directory})

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
if(QUILLON_BUILD_WORKSTATION)
  # First, because its prctl() must precede that of the C library in the symbol lookup.
  string(PREPEND pc_libraries "-lquillon-platform ")
endif()
configure_file(cmake/quillon-tv-plugin.pc.in ${CMAKE_BINARY_DIR}/quillon-tv-plugin.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/quillon-tv-plugin.pc DESTINATION ${pc_folder})
