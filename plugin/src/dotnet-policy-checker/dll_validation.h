// Asking a validator process about a library, and the validator's side of that exchange.
//
// The functions are exported: see plugin_validate_dll, create_pipe_server and create_pipe_client in
// the public header, and docs/dll-validation.md for what travels through the pipes.
#pragma once

#include <quillon_tv_plugin.h>

// What the server of this process calls with each request text; null until it was first started.
extern pipe_message_changed_cb g_callback;
