// Runs `quillon launch` in a prepared process of the launch pad.
#pragma once

#include <optional>
#include <string>

#include "quillon/host/application/options.h"
#include "workstation/log_config.h"

namespace quillon::cli {

// Returns the exit status if the launch pad ran the launch; else nullopt, with this process
// unchanged. Says why the launch is direct if --verbose is given, or standard error is a terminal.
//
// log, program  see launchpad::requestLaunch()
std::optional<int> launchPrepared(const host::LaunchOptions& options,
                                  const workstation::LogConfig& log,
                                  const std::string& program = {});

}  // namespace quillon::cli
