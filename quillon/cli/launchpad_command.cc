#include "quillon/cli/launchpad_command.h"

#include <array>
#include <iostream>
#include <memory>

#include "quillon/base/report.h"
#include "quillon/cli/command.h"
#include "quillon/cli/device_option.h"
#include "quillon/launchpad/client/client.h"
#include "quillon/launchpad/server/fresh_worker.h"
#include "quillon/launchpad/server/server.h"

namespace quillon::cli {
namespace {

using launchpad::LaunchpadOptions;
using launchpad::MessageKind;

void request(const LaunchpadOptions& options, MessageKind kind) {
  std::cout << valueOf(withStatus(kLaunchPadState, launchpad::command(options.device, kind)));
}

void addAction(CLI::App& launchpad, const char* name, const char* help, MessageKind kind) {
  const auto options = std::make_shared<LaunchpadOptions>();
  CLI::App* const action = launchpad.add_subcommand(name, help);
  addDeviceOption(*action, options->device);
  action->callback([options, kind] { request(*options, kind); });
}

void addServe(CLI::App& command, const std::shared_ptr<LaunchpadOptions>& options) {
  command.add_option("--type", options->types, "Type to prepare; default: all installed")
      ->type_name("TYPE")
      ->allow_extra_args(false);
  command.add_option("--size", options->size, "Prepared processes per type, 1 to 64")
      ->check(CLI::Range(1, 64))
      ->capture_default_str();
  command
      .add_option("--refill-delay", options->refillDelay,
                  "Seconds before the next process is prepared")
      ->check(CLI::Range(0.0, 3600.0))
      ->capture_default_str();
  command.add_flag("--fresh", options->fresh, "Give each process an address layout of its own");
}

// An internal command, which the empty group hides from the help.
void addWorker(CLI::App& launchpad) {
  const auto descriptors = std::make_shared<std::array<int, 2>>();
  CLI::App* const worker = launchpad.add_subcommand("worker")->group("");
  worker->add_option("channel", descriptors->at(0))->required();
  worker->add_option("configuration", descriptors->at(1))->required();
  worker->callback([descriptors] {
    endCommand(launchpad::runFreshWorker(descriptors->at(0), descriptors->at(1)));
  });
}

}  // namespace

void addLaunchpadCommand(CLI::App& app) {
  CLI::App* const command =
      app.add_subcommand("launchpad", "Keep processes prepared for faster launches");
  command->require_subcommand(0, 1);
  const auto options = std::make_shared<LaunchpadOptions>();
  // Not required here: its subcommands have the option, too.
  addDeviceOption(*command, options->device)->required(false);
  addServe(*command, options);
  addAction(*command, "stop", "Stop when the applications have ended; twice: end them, too",
            MessageKind::kStop);
  addAction(*command, "reload", "Replace all prepared processes", MessageKind::kReload);
  addAction(*command, "status", "Print the prepared processes and running applications",
            MessageKind::kStatus);
  addWorker(*command);
  command->callback([command, options] {
    if (!command->get_subcommands().empty()) {
      return;
    }
    if (options->device.empty()) {
      endCommand(report(noDevice()));
    }
    endCommand(launchpad::serve(*options));
  });
}

}  // namespace quillon::cli
