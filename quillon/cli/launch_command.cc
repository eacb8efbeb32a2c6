#include "quillon/cli/launch_command.h"

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "quillon/cli/command.h"
#include "quillon/cli/run_launch.h"
#include "quillon/host/launch.h"
#include "quillon/timeline/timed_launch.h"

namespace quillon::cli {
namespace {

using host::LaunchOptions;
using host::RuntimeSettings;

void addTarget(CLI::App& command, LaunchOptions& options) {
  command.add_option("--device", options.device, "Device root to launch in")
      ->required()
      ->type_name("DIR");
  command.add_option("APPID,--id", options.appId, "Application to launch, as installed")
      ->required();
  command.add_option("--type", options.type, "Application type; else the manifest's");
  command.add_option("--path", options.exec, "Executable's device path; else the manifest's");
}

void addLaunch(CLI::App& command, LaunchOptions& options) {
  command
      .add_option("--plugin", options.plugin, "Plug-in to load; else the one built with this tool")
      ->type_name("FILE");
  command.add_flag("--preload", options.preload,
                   "Prepare the process before it is told its application");
  command.add_flag("--raw", options.raw,
                   "Leave standard output and error as they are; else they go to the log");
  command.add_flag("--validate", options.validate,
                   "Ask the validator about the application's assemblies before loading any");
  command.add_flag("--direct", options.direct,
                   "Launch in this process, even where a launch pad runs");
  command
      .add_option("--writable", options.writable, "Machine path that the application may write to")
      ->type_name("PATH")
      ->allow_extra_args(false);
}

void addSwitch(CLI::App& command, const std::string& name, std::optional<bool>& setting,
               const std::string& what) {
  const std::map<std::string, bool> words = {{"on", true}, {"off", false}};
  command.add_option(name, setting, what)
      ->type_name("on|off")
      ->transform(CLI::CheckedTransformer(words))
      ->group("Runtime settings, each on where nothing says otherwise");
}

void addSettings(CLI::App& command, RuntimeSettings& settings) {
  addSwitch(command, "--tiered-compilation", settings.tieredCompilation,
            "Compile quickly first and well later");
  addSwitch(command, "--quick-jit-for-loops", settings.quickJitForLoops,
            "Methods with loops are compiled quickly first, too");
  addSwitch(command, "--tiered-pgo", settings.tieredPgo,
            "Watch quickly compiled methods, to compile them better later");
  addSwitch(command, "--ready-to-run", settings.readyToRun,
            "Use the compiled code that assemblies bring");
  addSwitch(command, "--write-xor-execute", settings.writeXorExecute,
            "Never have memory writable and executable at once; a defence, leave it on");
  addSwitch(command, "--diagnostics", settings.diagnostics,
            "Allow debuggers, profilers and the diagnostic socket; off is for production");
}

void addOutput(CLI::App& command, LaunchOptions& options) {
  CLI::Option* const plan =
      command.add_flag("--plan", options.plan, "Print what a launch would do, and do no more");
  plan->excludes("--validate");
  command.add_flag("--json", options.json, "Print the plan as JSON")->needs(plan);
  command
      .add_option("--timeline", options.timeline,
                  "Page to picture the launch in; trace events are put beside it as .json")
      ->type_name("FILE.html")
      ->excludes(plan);
  command.add_flag("--verbose", options.verbose, "Print the plan on standard error, then launch");
}

}  // namespace

void addLaunchCommand(CLI::App& app) {
  CLI::App* const command =
      app.add_subcommand("launch", "Launch an application in a device root through the plug-in");
  const auto options = std::make_shared<LaunchOptions>();
  addTarget(*command, *options);
  addLaunch(*command, *options);
  addSettings(*command, options->settings);
  addOutput(*command, *options);
  command->footer("Arguments after -- are the application's.");
  command->callback([options] {
    options->arguments = programArguments();
    const bool isTimed = !options->timeline.empty();
    endCommand(runLaunch(*options, isTimed ? timeline::launchWithTimeline : host::launch));
  });
}

}  // namespace quillon::cli
