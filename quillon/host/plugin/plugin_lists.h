// The lists that the plug-in computes for the runtime.
#pragma once

#include <optional>
#include <string>

namespace quillon::host {

// The results of the plug-in's list functions, unchanged.
struct PluginLists {
  std::optional<std::string> tpa;  // nullopt if the plug-in leaves the list to the launcher
  std::string dllPath;
  std::string nativePath;
  std::string extraPath;
};

}  // namespace quillon::host
