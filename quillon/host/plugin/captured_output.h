// The end of what an application printed.
//
// From plugin_has_log_control on, output goes through pipes that threads of the plug-in read. They
// end with the process, and so would the last lines of an application that prints and ends: the
// launcher gives them the time to log those.
#pragma once

namespace quillon::host {

// From here on the process, when it exits, flushes what stdout and stderr hold and waits until the
// plug-in has logged all that was printed; a few seconds at most. A process that ends otherwise, by
// a signal or _exit, does not. Call right after plugin_has_log_control, once.
void awaitCapturedOutputAtExit();

}  // namespace quillon::host
