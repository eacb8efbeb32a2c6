// The options of `quillon launch`: one table for the fast path (plain_launch.h) and for the full
// parser (launch_parser.h), so that both accept the same options with the same meaning.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>
#include <vector>

#include "quillon/cli/front/default_device.h"
#include "quillon/host/application/options.h"

namespace quillon::cli {

// The member that an option sets. Its type decides how the option is parsed: a bool is a flag
// without a value, a vector takes one value each time, an optional<bool> takes "on" or "off".
using LaunchMember = std::variant<bool host::LaunchOptions::*, std::string host::LaunchOptions::*,
                                  std::optional<std::string> host::LaunchOptions::*,
                                  std::filesystem::path host::LaunchOptions::*,
                                  std::vector<std::filesystem::path> host::LaunchOptions::*,
                                  std::optional<bool> host::RuntimeSettings::*>;

enum class Parser { kFull, kBoth };

struct LaunchOption {
  std::string_view name;
  LaunchMember member;
  const char* help;
  const char* valueName = "";     // in the help text
  Parser parser = Parser::kFull;  // kBoth: the fast path accepts the option too
  bool isRequired = false;
  const char* positional = "";  // name of the argument that sets the same member; "": none
  std::filesystem::path (*defaultValue)() = nullptr;  // nullptr: none
};

inline constexpr char kPlanOption[] = "--plan";
inline constexpr char kDetachOption[] = "--detach";
inline constexpr char kJsonOption[] = "--json";
inline constexpr char kTimelineOption[] = "--timeline";
inline constexpr char kValidateOption[] = "--validate";

// In the order of the help text.
inline constexpr LaunchOption kLaunchOptions[] = {
    {kDeviceOption, &host::LaunchOptions::device, kDeviceHelp, kDeviceValue, Parser::kBoth, true,
     "", defaultDevice},
    {"--id", &host::LaunchOptions::appId, "Id of an installed application", "ID", Parser::kBoth,
     true, "APPID"},
    {"--type", &host::LaunchOptions::type, "Application type; default: from the manifest", "TYPE",
     Parser::kBoth},
    {"--path", &host::LaunchOptions::exec, "Executable to run; default: from the manifest", "PATH",
     Parser::kBoth},
    {"--plugin", &host::LaunchOptions::plugin, "Plug-in to load; default: this program's", "FILE"},
    {"--preload", &host::LaunchOptions::preload, "Warm up before the application is known", "",
     Parser::kBoth},
    {"--raw", &host::LaunchOptions::raw, "Keep the application's output out of the log", "",
     Parser::kBoth},
    {kValidateOption, &host::LaunchOptions::validate,
     "Ask the validator about each assembly first"},
    {"--direct", &host::LaunchOptions::direct, "Do not use a launch pad", "", Parser::kBoth},
    {kDetachOption, &host::LaunchOptions::detach, "End when it has started; see quillon logs", "",
     Parser::kBoth},
    {"--writable", &host::LaunchOptions::writable, "Path that stays writable", "PATH"},
    {"--tiered-compilation", &host::RuntimeSettings::tieredCompilation,
     "Compile quickly first, optimize hot methods"},
    {"--quick-jit-for-loops", &host::RuntimeSettings::quickJitForLoops,
     "The same for methods with loops"},
    {"--tiered-pgo", &host::RuntimeSettings::tieredPgo, "Profile first, to optimize better later"},
    {"--ready-to-run", &host::RuntimeSettings::readyToRun, "Use precompiled code"},
    {"--write-xor-execute", &host::RuntimeSettings::writeXorExecute,
     "Never map memory writable and executable"},
    {"--diagnostics", &host::RuntimeSettings::diagnostics, "Allow debuggers and profilers"},
    {kPlanOption, &host::LaunchOptions::plan, "Print what a launch would do, and exit"},
    {kJsonOption, &host::LaunchOptions::json, "Print the plan as JSON"},
    {kTimelineOption, &host::LaunchOptions::timeline,
     "Write a page with the timeline of the launch", "FILE.html"},
    {"--verbose", &host::LaunchOptions::verbose, "Print the plan to standard error, then launch"},
};

template <typename Value>
Value& memberOf(host::LaunchOptions& options, Value host::LaunchOptions::*member) {
  return options.*member;
}
template <typename Value>
Value& memberOf(host::LaunchOptions& options, Value host::RuntimeSettings::*member) {
  return options.settings.*member;
}

// Calls `function` with a reference to the member of `options` that `option` sets.
template <typename Function>
auto withMember(const LaunchOption& option, host::LaunchOptions& options, Function function) {
  return std::visit([&](auto member) { return function(memberOf(options, member)); },
                    option.member);
}

inline bool isSet(const LaunchOption& option, host::LaunchOptions& options) {
  return withMember(option, options, [](const auto& member) {
    return member != std::remove_cvref_t<decltype(member)>();
  });
}

// Sets the members that are not set and whose options have a default.
inline void applyDefaults(host::LaunchOptions& options) {
  for (const LaunchOption& option : kLaunchOptions) {
    if (option.defaultValue == nullptr || isSet(option, options)) {
      continue;
    }
    withMember(option, options, [&]<typename Member>(Member& member) {
      if constexpr (std::is_same_v<Member, std::filesystem::path>) {
        member = option.defaultValue();
      }
    });
  }
}

}  // namespace quillon::cli
