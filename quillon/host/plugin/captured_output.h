// The last lines of an application whose output is captured.
//
// After plugin_has_log_control, output goes through pipes that threads of the plug-in read. The
// threads end with the process, so without a wait the last lines before the exit would be lost.
#pragma once

namespace quillon::host {

// Registers an exit handler that flushes stdout and stderr and waits, for a few seconds at most,
// until the plug-in has logged all output. A process that ends by a signal or by _exit() does not
// run it. Call once, right after plugin_has_log_control.
void drainCapturedOutputAtExit();

}  // namespace quillon::host
