// A validator process: answers the requests of applications whether they may load a library.
#pragma once

#include <filesystem>

#include "quillon/base/exit_status.h"
#include "quillon/base/failure.h"
#include "quillon/validator/policy.h"

namespace quillon::validator {

// Serves the pipes of the device root that the process has entered, with the plug-in's
// create_pipe_server and create_pipe_client. Prints one line for each request. After SIGINT,
// SIGTERM or SIGHUP it removes the pipes and returns. The serving thread still runs then, so the
// caller must call _exit(2) next.
//
// The process must have one thread and may call this once. Fails if a validator runs already, if
// the plug-in cannot be loaded, or if the pipes cannot be created.
[[nodiscard]] Expected<void> serve(const Policy& policy, const std::filesystem::path& plugin);

}  // namespace quillon::validator
