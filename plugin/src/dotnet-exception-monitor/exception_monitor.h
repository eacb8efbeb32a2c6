// Counts memory faults that another handler recovers from. The runtime converts a fault in managed
// code into an exception; an application that catches too many of them is reported. The monitor
// itself never ends the process.
//
// enable_exception_monitor, in the public header, starts it. Its handler calls only
// async-signal-safe functions. The counters are not atomic: if two threads fault at the same time,
// the two faults can be counted as one.
#pragma once

#include <csignal>
#include <cstdint>
#include <ctime>

// The action that enable_exception_monitor installed, and the previous action, to which the handler
// passes each fault.
extern struct sigaction sig_segv_for_exception_new;
extern struct sigaction sig_segv_for_exception_old;

extern std::int32_t exception_limit_for_sec;  // length of a period, in seconds
extern std::int32_t exception_limit_count;    // reported if a period has this many faults
extern std::int32_t exception_count;          // faults in the current period
extern std::time_t last_exception_time;       // start of the current period
