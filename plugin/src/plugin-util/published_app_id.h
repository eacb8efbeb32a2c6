// A copy of the application id for signal handlers. A handler must not read g_appID, because the
// interrupted thread or another one may be assigning it.
//
// Thread safety: one thread at a time may publish. Any thread and any signal handler may read.
#pragma once

// Publishes the first 99 bytes of `id`; a report of the exception monitor is not longer.
// _SetAppInfo calls it.
void publishAppId(const char* id);

// Returns the published id, or an empty string if none was published. The string does not change
// until an id has been published twice more; a launch publishes one. Async-signal-safe.
const char* publishedAppId();
