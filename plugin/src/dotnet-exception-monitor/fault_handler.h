// The handler that enable_exception_monitor installs; exception_monitor.h documents what it does.
//
// The source file contains only code that runs in a signal handler. A test fails if its object file
// needs a function that is not async-signal-safe, such as one that writes to the platform log.
#pragma once

#include <csignal>

namespace fault_handler {

void onSigsegvForException(int sig, siginfo_t* info, void* context);

}  // namespace fault_handler
