// Native libraries that a process loads before its application is known.
#pragma once

// Loads every library listed in "/usr/bin/dotnet_preload_so_list.txt": names or paths as dlopen(3)
// takes them, separated by white space. They stay loaded until the process ends. If a library
// cannot be loaded, logs an error line with the message of dlerror(3). A missing list is not an
// error.
void preloadSharedLibraries();
