// The client side of the launch pad, for `quillon launch` and `quillon launchpad`.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "quillon/base/failure.h"
#include "quillon/host/application/options.h"
#include "quillon/launchpad/protocol/message.h"
#include "quillon/launchpad/protocol/status.h"
#include "workstation/log_config.h"

namespace quillon::launchpad {

struct LaunchOutcome {
  std::optional<int> status;  // exit status, if a worker ran the application
  std::string whyNot;         // otherwise the reason; empty if no launch pad runs
  std::string remedy = {};
  bool isLaunchable = true;  // false: a direct launch fails too, and reports why
};

// Asks the launch pad of the device root, if one runs, for a launch and waits until the application
// ends. Meanwhile, signals sent to this process are relayed to the application. If a signal ends
// the application, this process ends by the same signal. Without a status in the outcome, no code
// of the application has run and this process is unchanged.
//
// Until the application starts, no step waits without limit: neither a stopped launch pad, a
// stopped worker nor another user's process at the address can hold the caller.
//
// log      of this process
// program  see declaredStateOf()
LaunchOutcome requestLaunch(const host::LaunchOptions& options, const workstation::LogConfig& log,
                            const std::string& program = {});

// Whether a launch pad of this process's user serves the device root.
bool isServed(const std::filesystem::path& device);

// Whether this process can write to its working directory, but applications of the device root's
// launch pad cannot. False if no launch pad of this process's user runs.
bool hasWorkingDirectoryReadOnly(const std::filesystem::path& device);

// Sends kStop, kReload or kStatus and returns the bytes of the launch pad's answer. After kStop,
// returns when the launch pad has ended. Fails if none runs, or if it does not answer.
[[nodiscard]] Expected<std::string> command(const std::filesystem::path& device, MessageKind kind);

// The status of the launch pad. Fails in the same way.
[[nodiscard]] Expected<Status> statusOf(const std::filesystem::path& device);

}  // namespace quillon::launchpad
