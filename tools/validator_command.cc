#include "tools/validator_command.h"

#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>
#include <system_error>

#include "launcher/plugin_library.h"
#include "tools/command.h"
#include "tools/device_option.h"
#include "tools/report.h"
#include "tools/validator/policy.h"
#include "tools/validator/validator.h"

namespace quillon {
namespace {

namespace fs = std::filesystem;

struct ValidatorRequest {
  std::string device;
  fs::path policy;
  fs::path plugin;  // empty: the one beside the executable
};

fs::path pluginOf(const ValidatorRequest& request) {
  std::error_code ignored;
  return request.plugin.empty()
             ? launcher::defaultPlugin(fs::read_symlink("/proc/self/exe", ignored))
             : fs::absolute(request.plugin, ignored);
}

void run(const ValidatorRequest& request) {
  // Read before the device hides the path that was meant.
  const auto policy = validator::readPolicy(request.policy);
  if (!policy) endCommand(report(policy.error(), kServiceFailed));
  const fs::path plugin = pluginOf(request);
  enterDevice(request.device, {plugin.parent_path()});
  const auto served = validator::serve(*policy, plugin);
  if (!served) report(served.error(), served.error().status);
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

}  // namespace quillon
