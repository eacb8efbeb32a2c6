// Native libraries that a process loads before it knows its application.
#pragma once

// Loads every library named in "/usr/bin/dotnet_preload_so_list.txt": names or paths as dlopen(3)
// takes them, separated by white space. They stay loaded until the process ends. One that does not
// load is an error line with the loader's text; a missing list is none.
void preloadSharedLibraries();
