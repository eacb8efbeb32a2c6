// The pieces of print_all_backtrace. Stacks are walked by the platform's crash tooling, which the
// plug-in asks with a signal, one thread at a time.
//
// Thread safety: any thread may call these.
#pragma once

// Calls `callback` with the name of every entry of the directory `path` but "." and "..", in the
// order in which the directory yields them. The directory has to exist. Always returns 0.
int dir_traverse(const char* path, void (*callback)(const char* name));

// Logs `name`, a thread id in decimal, and asks that thread for its backtrace.
void print_name(const char* name);
