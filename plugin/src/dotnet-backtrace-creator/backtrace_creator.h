// The parts of print_all_backtrace. The plug-in sends a signal to one thread at a time; the
// platform's crash tooling then unwinds the stack.
//
// Thread safety: any thread may call these functions.
#pragma once

// Calls `callback` with the name of every entry of the directory `path` except "." and "..", in the
// order of readdir(3). Calls nothing if the directory cannot be opened. Always returns 0.
int dir_traverse(const char* path, void (*callback)(const char* name));

// Logs `name`, a thread id in decimal, and requests a backtrace of that thread.
void print_name(const char* name);
