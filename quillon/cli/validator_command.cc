#include "quillon/cli/validator_command.h"

#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>
#include <system_error>

#include "quillon/base/files.h"
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
  std::string device;
  fs::path policy;
  fs::path plugin;  // empty: the one beside the executable
};

fs::path pluginOf(const ValidatorRequest& request) {
  std::error_code ignored;
  return request.plugin.empty() ? host::defaultPlugin(executablePath())
                                : fs::absolute(request.plugin, ignored);
}

void run(const ValidatorRequest& request) {
  // Read before the device hides the path that was meant.
  const auto policy = validator::readPolicy(request.policy);
  if (!policy) endCommand(report(policy.error()));
  const fs::path plugin = pluginOf(request);
  enterDevice(request.device, {plugin.parent_path()});
  const auto served = validator::serve(*policy, plugin);
  if (!served) report(served.error());
  // A thread is still in the plug-in's server: nothing may be torn down under it. Nor is standard
  // output flushed, which that thread may be blocked at; each line was as it was printed.
  _exit(served ? kSuccess : served.error().status);
}

}  // namespace

void addValidatorCommand(CLI::App& app) {
  const auto request = std::make_shared<ValidatorRequest>();
  CLI::App* command =
      app.add_subcommand("validator", "Answer whether applications may load their libraries");
  addDeviceOption(*command, request->device);
  command->add_option("POLICY", request->policy, "What is allowed, a TOML file")->required();
  command
      ->add_option("--plugin", request->plugin,
                   "Plug-in to load; else the one built with this tool")
      ->type_name("FILE");
  command->callback([request] { run(*request); });
}

}  // namespace quillon::cli
