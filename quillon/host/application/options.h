// What the command line of `quillon launch` asks for.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "quillon/host/runtime/runtime_settings.h"

namespace quillon::host {

struct LaunchOptions {
  std::filesystem::path device;
  std::string appId;
  std::optional<std::string> type;  // else what the registry says of the application
  std::optional<std::string> exec;  // device path; else what the registry says
  std::filesystem::path plugin;     // empty: the one beside the executable
  bool preload = false;             // prepare the process before the application is told
  bool raw = false;                 // leave the application the command's own descriptors 1 and 2
  bool validate = false;            // ask the validator about the application's assemblies
  bool direct = false;              // not through the launch pad, even where one runs
  bool plan = false;                // stop before the runtime and print
  bool json = false;                // the plan as JSON
  bool verbose = false;             // say on the terminal what the launcher decided
  RuntimeSettings settings;
  std::filesystem::path timeline;               // page that pictures the launch; empty: none
  std::vector<std::filesystem::path> writable;  // machine paths that stay writable
  std::vector<std::string> arguments;           // of the application
};

}  // namespace quillon::host
