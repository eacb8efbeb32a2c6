// The handlers that registerSignalHandler installs; signal_handler.h documents what they do.
//
// The source file contains only code that runs in signal handlers. A test fails if its object file
// needs a function that is not async-signal-safe, such as one that writes to the platform log.
#pragma once

namespace crash_handlers {

void sigtermHandler(int sig);
void onSigabrt(int sig);
void onSigsegv(int sig);
void onSigtrap(int sig);

}  // namespace crash_handlers
