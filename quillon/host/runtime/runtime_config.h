// What an application's own build says of its runtime: NAME.runtimeconfig.json beside NAME.dll.
#pragma once

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "quillon/base/failure.h"

namespace quillon::host {

struct RuntimeConfig {
  std::string frameworkVersion;  // wanted version of Microsoft.NETCore.App; empty: not said
  // "configProperties", in file order, as the texts that the runtime takes.
  std::vector<std::pair<std::string, std::string>> properties;
};

// The file beside an assembly that would hold its configuration.
std::filesystem::path runtimeConfigOf(std::filesystem::path assembly);

// The configuration of an assembly; an empty one where it has none. Fails, naming the file, where
// the file is there and is no such configuration.
[[nodiscard]] Expected<RuntimeConfig> readRuntimeConfig(const std::filesystem::path& assembly);

// The version of the framework in a folder, as Microsoft.NETCore.App.deps.json tells it; empty
// where it does not.
std::string frameworkVersionOf(const std::filesystem::path& framework);

}  // namespace quillon::host
