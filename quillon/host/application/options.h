// The options of `quillon launch`.
#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "quillon/host/runtime/runtime_settings.h"

namespace quillon::host {

struct LaunchOptions {
  std::filesystem::path device;
  std::string appId;
  std::optional<std::string> type;  // replaces the type in the registry
  std::optional<std::string> exec;  // device path; replaces the path in the registry
  std::filesystem::path plugin;     // empty: the plug-in beside the executable
  bool preload = false;             // call plugin_preload before plugin_set_app_info
  bool raw = false;                 // do not capture the application's descriptors 1 and 2
  bool validate = false;            // ask the validator about the application's assemblies
  bool direct = false;              // do not use the launch pad
  bool plan = false;                // print the plan instead of launching
  bool json = false;                // print the plan as JSON
  bool planIfMissing = true;        // print the plan if the machine lacks a framework
  bool detach = false;              // do not wait for the application's end
  bool verbose = false;             // print the launcher's decisions on the terminal
  RuntimeSettings settings;
  std::filesystem::path timeline;               // page to write; empty: none
  std::vector<std::filesystem::path> writable;  // machine paths that stay writable
  std::vector<std::string> arguments;           // of the application
  std::function<void()> onStart = {};           // called before Main; may be empty
};

}  // namespace quillon::host
