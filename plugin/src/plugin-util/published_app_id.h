// A copy of the application id for signal handlers, while g_appID is being assigned. A handler must
// not read g_appID then, because the interrupted thread or another one writes it.
//
// Thread safety: one thread at a time may publish and withdraw. Any thread and any signal handler
// may read.
#pragma once

// Publishes the first 99 bytes of `id`; a report of the exception monitor is not longer.
// _SetAppInfo calls it before it assigns g_appID.
void publishAppId(const char* id);

// Ends the publication. _SetAppInfo calls it when g_appID has the new value.
void withdrawAppId();

// Returns the published id, or null if none is published. The string does not change until another
// id is published. Async-signal-safe.
const char* publishedAppId();
