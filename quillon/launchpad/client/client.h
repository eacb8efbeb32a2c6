// The launch pad as `quillon launch` and `quillon launchpad` ask it.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "quillon/base/failure.h"
#include "quillon/host/application/options.h"
#include "quillon/launchpad/protocol/message.h"

namespace quillon::launchpad {

struct LaunchOutcome {
  std::optional<int> status;  // of the command, when the launch pad carried the launch out
  std::string whyNot;         // else why not; empty where no launch pad runs
};

// Asks the launch pad of the device root, if one runs, to carry a launch out, and waits for the
// application's end: signals that this process gets meanwhile go to the application, and an
// application that a signal ended ends this process by the same. Without a status this process is
// as it was, and nothing of the application has run. A launch pad that does not answer is left
// alone after two seconds.
//
// program  file of the quillon program, where another program asks
LaunchOutcome requestLaunch(const host::LaunchOptions& options, const std::string& program = {});

// Whether a launch pad of this user's serves the device root.
bool isServed(const std::filesystem::path& device);

// Sends one of kStop, kReload and kStatus and returns what the launch pad answers; after kStop when
// the launch pad has ended. Fails where none runs.
[[nodiscard]] Expected<std::string> command(const std::filesystem::path& device, MessageKind kind);

}  // namespace quillon::launchpad
