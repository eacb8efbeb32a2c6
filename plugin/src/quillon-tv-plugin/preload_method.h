// The managed methods that the plug-in calls: static methods of the type Velora.Preload in the
// assembly Preload.
#pragma once

// Stores a function that calls `method` in `*function`, or null on failure. Returns the status of
// the runtime. It is negative on failure, and also if plugin_set_coreclr_info was not called.
int createPreloadMethod(const char* method, void** function);
