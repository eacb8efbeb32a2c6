# `cmake --install` installs the plug-in, its public header, a CMake package and a pkg-config file.
# If they were built, it also installs the workstation platform and the quillon tool.

include(CMakePackageConfigHelpers)

set(targets quillon-tv-plugin)
if(QUILLON_BUILD_WORKSTATION)
  list(APPEND targets quillon-platform)
  install(TARGETS quillon RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  install(TARGETS quillon-commands quillon-crypto-commands
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
  # The launch pad's managed side, and what device roots get, if there was an SDK to build them.
  install(FILES
    ${CMAKE_BINARY_DIR}/lib/quillon/Quillon.Launchpad.dll
    ${CMAKE_BINARY_DIR}/lib/quillon/Preload.dll
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/quillon OPTIONAL)
  # Nothing links it; the quillon tool copies it into device roots.
  install(TARGETS quillon-platform-zone LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} NAMELINK_SKIP)
endif()
install(TARGETS ${targets} EXPORT quillon-tv-plugin-targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES plugin/include/quillon_tv_plugin.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

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

configure_file(cmake/quillon-tv-plugin.pc.in ${CMAKE_BINARY_DIR}/quillon-tv-plugin.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/quillon-tv-plugin.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
