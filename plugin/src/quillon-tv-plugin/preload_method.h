// The managed methods that the plug-in calls: static ones of the type Velora.Preload in the
// assembly Preload.
#pragma once

// Stores a function that calls `method` in `*function`; null where the runtime gave none. Returns
// the runtime's status, negative on failure, and also where plugin_set_coreclr_info was not called.
int createPreloadMethod(const char* method, void** function);
