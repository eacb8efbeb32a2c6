// Tells when the machine is short of memory (proc_pressure, "PSI" in the kernel's documentation).
#pragma once

#include "quillon/base/descriptor.h"

namespace quillon::launchpad {

// Returns a descriptor for poll(2) that reports POLLPRI when processes have waited for memory for
// 150 ms within 2 s, at most once in 2 s. Returns an invalid descriptor if the kernel cannot report
// it or this user may not ask.
//
// file  /proc/pressure/memory
Descriptor watchMemoryPressure(const char* file = "/proc/pressure/memory");

}  // namespace quillon::launchpad
