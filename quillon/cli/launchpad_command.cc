#include "quillon/cli/launchpad_command.h"

#include <array>
#include <cstdlib>
#include <filesystem>
#include <memory>

#include "quillon/base/report.h"
#include "quillon/cli/command.h"
#include "quillon/cli/device_option.h"
#include "quillon/cli/json_output.h"
#include "quillon/cli/launchpad_status.h"
#include "quillon/cli/new_device.h"
#include "quillon/launchpad/client/client.h"
#include "quillon/launchpad/server/fresh_worker.h"
#include "quillon/launchpad/server/server.h"

namespace quillon::cli {
namespace {

using launchpad::LaunchpadOptions;
using launchpad::MessageKind;

struct ActionRequest {
  std::filesystem::path device;
  bool json = false;
};

launchpad::Status statusOf(const ActionRequest& request) {
  return valueOf(withStatus(kLaunchPadState, launchpad::statusOf(request.device)));
}

template <MessageKind kind>
void command(const ActionRequest& request) {
  valueOf(withStatus(kLaunchPadState, launchpad::command(request.device, kind)));
}

void runStatus(const ActionRequest& request) {
  request.json ? printStatusAsJson(statusOf(request)) : printStatus(statusOf(request));
}

void runMetrics(const ActionRequest& request) { printMetrics(statusOf(request)); }

CLI::App* addAction(CLI::App& launchpad, const std::shared_ptr<ActionRequest>& request,
                    const char* name, const char* help, void (*run)(const ActionRequest&)) {
  CLI::App* const action = launchpad.add_subcommand(name, help);
  addDeviceOption(*action, request->device);
  action->callback([request, run] { run(*request); });
  return action;
}

void addActions(CLI::App& launchpad) {
  const auto request = std::make_shared<ActionRequest>();
  addAction(launchpad, request, "stop",
            "Stop when the applications have ended; twice: end them, too",
            command<MessageKind::kStop>);
  addAction(launchpad, request, "reload", "Replace all prepared processes",
            command<MessageKind::kReload>);
  addAction(launchpad, request, "status", "Print processes, applications and direct launches",
            runStatus)
      ->add_flag(kJsonFlag, request->json, kJsonHelp);
  addAction(launchpad, request, "metrics", "Print launches and pools as OpenMetrics text",
            runMetrics);
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
  command.add_option("--memory", options->memory, "MiB for one application's processes; 0: none")
      ->check(CLI::Range(0, 65536))
      ->capture_default_str();
  command.add_option("--writable", options->writable, "Path that stays writable")
      ->type_name("PATH")
      ->allow_extra_args(false);
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
  addActions(*command);
  addWorker(*command);
  command->callback([command, options] {
    if (!command->get_subcommands().empty()) {
      return;
    }
    if (options->device.empty()) {
      endCommand(report(noDevice()));
    }
    valueOf(makeDeviceOfUser(options->device));
    // serve() executes the program again without HOME, the default's source.
    setenv(kDeviceVariable, options->device.c_str(), 1);
    endCommand(launchpad::serve(*options));
  });
}

}  // namespace quillon::cli
