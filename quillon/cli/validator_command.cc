#include "quillon/cli/validator_command.h"

#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>

#include "quillon/base/report.h"
#include "quillon/cli/command.h"
#include "quillon/cli/device_option.h"
#include "quillon/host/plugin/plugin_library.h"
#include "quillon/validator/policy.h"
#include "quillon/validator/validator.h"

namespace quillon::cli {
namespace {

namespace fs = std::filesystem;

struct ValidatorRequest {
  fs::path device;
  fs::path policy;
  fs::path plugin;  // empty: the one built with this program
};

void run(const ValidatorRequest& request) {
  // Read the policy before entering the device root, which may hide its path.
  const validator::Policy policy = valueOf(validator::readPolicy(request.policy));
  const fs::path plugin = host::pluginOrDefault(request.plugin);
  enterDevice(request.device, {plugin.parent_path()});
  const auto served = validator::serve(policy, plugin);
  if (!served) {
    report(served.error());
  }
  // _exit(2), since a thread still runs in the plug-in's server: destructors must not run under it,
  // and it may hold the lock of standard output. Every line was flushed when it was printed.
  _exit(served ? kSuccess : served.error().status);
}

}  // namespace

void addValidatorCommand(CLI::App& app) {
  const auto request = std::make_shared<ValidatorRequest>();
  CLI::App* command = app.add_subcommand("validator", kValidatorSummary);
  addDeviceOption(*command, request->device);
  command->add_option("POLICY", request->policy, "Policy, a TOML file")->required();
  command->add_option("--plugin", request->plugin, "Plug-in to load; default: this program's")
      ->type_name("FILE");
  command->callback([request] { run(*request); });
}

}  // namespace quillon::cli
