// Counts memory faults in front of the handler that deals with them. The runtime turns a fault in
// managed code into an exception; an application that catches too many of them is worth a report.
// The monitor itself ends no process.
//
// enable_exception_monitor, in the public header, starts it. Its handler calls async-signal-safe
// functions only. The counts are plain, so two threads that fault at once may count as one.
#pragma once

#include <csignal>
#include <cstdint>
#include <ctime>

// What enable_exception_monitor installed, and what the handler passes each fault on to.
extern struct sigaction sig_segv_for_exception_new;
extern struct sigaction sig_segv_for_exception_old;

extern std::int32_t exception_limit_for_sec;  // length of a period, in seconds
extern std::int32_t exception_limit_count;    // faults in one period from which on each is reported
extern std::int32_t exception_count;          // faults in the current period
extern std::time_t last_exception_time;       // when it began
