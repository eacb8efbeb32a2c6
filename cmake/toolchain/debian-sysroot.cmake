# Toolchain for Debian's cross compilers and a sysroot of scripts/sysroot. The file of each
# architecture sets `name`, its name here, and `triplet`, the compilers' prefix.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_LIBRARY_ARCHITECTURE ${triplet})
set(CMAKE_C_COMPILER ${triplet}-gcc)
set(CMAKE_CXX_COMPILER ${triplet}-g++)

cmake_path(GET CMAKE_CURRENT_LIST_DIR PARENT_PATH top)
cmake_path(GET top PARENT_PATH top)
set(CMAKE_SYSROOT ${top}/build/sysroot/${name})
if(NOT EXISTS ${CMAKE_SYSROOT})
  message(FATAL_ERROR "There is no ${CMAKE_SYSROOT}; run: scripts/sysroot ${name}")
endif()
set(CMAKE_CROSSCOMPILING_EMULATOR ${top}/scripts/in-sysroot ${name})

# Libraries and headers of the sysroot, programs of this machine.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
foreach(kind LIBRARY INCLUDE PACKAGE)
  set(CMAKE_FIND_ROOT_PATH_MODE_${kind} ONLY)
endforeach()
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR}
  ${CMAKE_SYSROOT}/usr/lib/${triplet}/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig)
