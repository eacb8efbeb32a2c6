// A validator process: answers applications that ask whether a library may be loaded.
#pragma once

#include <filesystem>

#include "quillon/base/exit_status.h"
#include "quillon/base/failure.h"
#include "quillon/validator/policy.h"

namespace quillon::validator {

// Serves the pipes of the device root that the process is in, through the plug-in's own
// create_pipe_server and create_pipe_client, and prints one line for each request. Returns after
// SIGINT, SIGTERM or SIGHUP, with the pipes removed; the serving thread lives on, so the caller
// ends the process without more ado.
//
// The process must have one thread and serves once. Fails where a validator runs already, where the
// plug-in cannot be loaded and where the pipes cannot be made.
[[nodiscard]] Expected<void> serve(const Policy& policy, const std::filesystem::path& plugin);

}  // namespace quillon::validator
