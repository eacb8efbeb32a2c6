#include "quillon/cli/launchpad_command.h"

#include <iostream>
#include <memory>

#include "quillon/base/report.h"
#include "quillon/cli/command.h"
#include "quillon/launchpad/client/client.h"
#include "quillon/launchpad/server/server.h"

namespace quillon::cli {
namespace {

using launchpad::LaunchpadOptions;
using launchpad::MessageKind;

void addDevice(CLI::App& command, LaunchpadOptions& options) {
  command.add_option("--device", options.device, "Device root that is served")
      ->required()
      ->envname("QUILLON_DEVICE")
      ->type_name("DIR");
}

void ask(const LaunchpadOptions& options, MessageKind kind) {
  const auto answer = launchpad::command(options.device, kind);
  if (!answer) endCommand(report(withStatus(kLaunchPadState, answer.error())));
  std::cout << *answer;
}

void addAction(CLI::App& launchpad, const char* name, const char* help, MessageKind kind) {
  const auto options = std::make_shared<LaunchpadOptions>();
  CLI::App* const action = launchpad.add_subcommand(name, help);
  addDevice(*action, *options);
  action->callback([options, kind] { ask(*options, kind); });
}

void addServe(CLI::App& command, const std::shared_ptr<LaunchpadOptions>& options) {
  command
      .add_option("--type", options->types,
                  "Application type to prepare for from the start; else all that are installed")
      ->allow_extra_args(false);
  command.add_option("--size", options->size, "Prepared processes of each kind")
      ->check(CLI::Range(1, 64))
      ->capture_default_str();
  command
      .add_option("--refill-delay", options->refillDelay,
                  "Seconds without a launch before the next process is prepared")
      ->check(CLI::Range(0.0, 3600.0))
      ->capture_default_str();
}

}  // namespace

void addLaunchpadCommand(CLI::App& app) {
  CLI::App* const command =
      app.add_subcommand("launchpad", "Keep processes prepared for the launches of a device root");
  command->require_subcommand(0, 1);
  const auto options = std::make_shared<LaunchpadOptions>();
  command->add_option("--device", options->device, "Device root that is served")
      ->envname("QUILLON_DEVICE")
      ->type_name("DIR");
  addServe(*command, options);
  addAction(*command, "stop", "Let applications end, then stop; asked again, end them too",
            MessageKind::kStop);
  addAction(*command, "reload", "Prepare all processes anew", MessageKind::kReload);
  addAction(*command, "status", "Print what is prepared and what runs", MessageKind::kStatus);
  command->callback([command, options] {
    if (!command->get_subcommands().empty()) return;
    if (options->device.empty()) {
      endCommand(report({"--device is required", "see quillon launchpad --help", kUsage}));
    }
    endCommand(launchpad::serve(*options));
  });
}

}  // namespace quillon::cli
