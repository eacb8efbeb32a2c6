// Where signal handlers put their messages: the standard-error pipe, through an open file
// description of its own.
//
// Descriptor 2 and pStdErr share theirs, so that a non-blocking mode set there would be the
// application's too. One of our own can be non-blocking by itself (pipe(7), proc(5): opening
// /proc/self/fd/N opens the pipe anew).
#pragma once

#include <atomic>

// Its number; -1 while it is not open.
extern std::atomic<int> messageEnd;
static_assert(std::atomic<int>::is_always_lock_free, "signal handlers read it");

// Opens it over `writeEnd`. Without it, where it cannot be opened, messages go to `writeEnd`.
void openMessageEnd(int writeEnd);
// Closes it.
void closeMessageEnd();
