// The options of `quillon launch` for the full parser. In a header, so that a test can compare the
// parser with the fast path.
#pragma once

#include <CLI/CLI.hpp>

#include <optional>
#include <string>

#include "quillon/cli/front/launch_options_table.h"

namespace quillon::cli {

inline CLI::Option* addLaunchOption(CLI::App& command, const LaunchOption& option, bool& flag) {
  return command.add_flag(std::string(option.name), flag, option.help);
}

inline CLI::Option* addLaunchOption(CLI::App& command, const LaunchOption& option,
                                    std::optional<bool>& setting) {
  const auto toBool = [](std::string& word) {
    if (word != "on" && word != "off") {
      return "'" + word + "' is neither on nor off";
    }
    word = word == "on" ? "true" : "false";
    return std::string();
  };
  return command.add_option(std::string(option.name), setting, option.help)
      ->type_name("on|off")
      ->transform(CLI::Validator(toBool, ""))
      ->group("Runtime settings; default: environment, then application, then on");
}

template <typename Value>
CLI::Option* addLaunchOption(CLI::App& command, const LaunchOption& option, Value& value) {
  const std::string positional = option.positional;
  const std::string name(option.name);
  return command
      .add_option(positional.empty() ? name : positional + "," + name, value, option.help)
      ->type_name(option.valueName)
      ->allow_extra_args(false);
}

// Adds every option of the table to `command`, which must not outlive `options`. Sets `options` to
// their defaults, which the options replace.
inline void addLaunchOptions(CLI::App& command, host::LaunchOptions& options) {
  applyDefaults(options);
  for (const LaunchOption& option : kLaunchOptions) {
    withMember(option, options, [&](auto& member) {
      addLaunchOption(command, option, member)
          ->required(option.isRequired && !isSet(option, options));
    });
  }
  CLI::Option* const plan = command.get_option(kPlanOption);
  plan->excludes(kValidateOption);
  command.get_option(kJsonOption)->needs(plan);
  command.get_option(kTimelineOption)->excludes(plan);
  command.get_option(kDetachOption)->excludes(plan);
}

}  // namespace quillon::cli
