// The runtime settings in an application's build output: NAME.runtimeconfig.json beside NAME.dll.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "quillon/base/failure.h"
#include "quillon/host/runtime/runtime.h"

namespace quillon::host {

struct RuntimeConfig {
  std::string frameworkVersion;  // wanted version of Microsoft.NETCore.App; empty if not stated
  std::vector<std::string> otherFrameworks;  // names of further ones that it wants
  RuntimeProperties properties;              // "configProperties" as strings, in file order
};

// The path of the configuration file of an assembly, which need not exist.
std::filesystem::path runtimeConfigOf(std::filesystem::path assembly);

// Reads the configuration of an assembly. Returns an empty one if the file does not exist. Fails,
// naming the file, if it exists and is not a JSON object within the limits of docs/limits.md. A
// package writes it, so it may contain anything.
[[nodiscard]] Expected<RuntimeConfig> readRuntimeConfig(const std::filesystem::path& assembly);

// The version of the framework in a folder, from its Microsoft.NETCore.App.deps.json. Empty if the
// file does not state it.
std::string frameworkVersionOf(const std::filesystem::path& framework);

}  // namespace quillon::host
