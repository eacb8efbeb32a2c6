// The end of the standard-error pipe to which signal handlers write their messages. It has an open
// file description of its own.
//
// Descriptor 2 and pStdErr share an open file description with the application, so setting
// O_NONBLOCK there would affect the application. Opening /proc/self/fd/N opens the pipe again
// (pipe(7), proc(5)); the new description can be non-blocking independently.
#pragma once

#include <atomic>

// The descriptor of the message end, or -1 if it is not open.
extern std::atomic<int> messageEnd;
static_assert(std::atomic<int>::is_always_lock_free, "signal handlers read it");

// Opens the message end for the pipe of `writeEnd`. If that fails, messages are written to
// `writeEnd`.
void openMessageEnd(int writeEnd);
// Closes the message end.
void closeMessageEnd();
