// A validator process: answers applications that ask whether a library may be loaded.
#pragma once

#include <workstation/failure.h>

#include <filesystem>

#include "tools/exit_status.h"
#include "tools/validator/policy.h"

namespace quillon::validator {

// A failure with what the command ends with.
struct ServeFailure : Failure {
  ExitStatus status;
};

// Serves the pipes of the device root that the process is in, through the plug-in's own
// create_pipe_server and create_pipe_client, and prints one line for each request. Returns after
// SIGINT, SIGTERM or SIGHUP, with the pipes removed; the serving thread lives on, so the caller
// ends the process without more ado.
//
// The process must have one thread and serves once. Fails where a validator runs already, where the
// plug-in cannot be loaded and where the pipes cannot be made.
[[nodiscard]] tl::expected<void, ServeFailure> serve(const Policy& policy,
                                                     const std::filesystem::path& plugin);

}  // namespace quillon::validator
