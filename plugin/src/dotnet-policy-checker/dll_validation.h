// Validation of libraries: the client side, which asks the validator process, and the server side.
//
// The functions are exported. See plugin_validate_dll, create_pipe_server and create_pipe_client in
// the public header, and docs/dll-validation.md for the messages.
#pragma once

#include "quillon_tv_plugin.h"

// The callback of the server in this process; null until create_pipe_server is called.
extern pipe_message_changed_cb g_callback;
