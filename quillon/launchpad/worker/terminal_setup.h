// The runtime's native setup of the terminal and of signal handling.
//
// Managed code calls it when it first uses the console. It takes effect once in a process: the
// native library of the runtime then remembers the terminal of descriptor 0 and its settings, which
// it restores at the end. While the launch pad's managed code warms the console up, descriptor 0 is
// a placeholder, so the setup is left to the application.
#pragma once

namespace quillon::launchpad {

// A FindFunction (see hostpolicy.h). Answers for
//
//   libSystem.Native  the setup: a function that calls the runtime's own, except while it is
//                     postponed
//   Quillon.Launchpad "PostponeTerminalSetup", void(int): postpones the setup, or no longer
//
// Answers for neither if the runtime has no such function.
const void* findTerminalSetup(const char* library, const char* function);

}  // namespace quillon::launchpad
