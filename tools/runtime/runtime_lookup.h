// Finds a .NET runtime on this machine: QUILLON_DOTNET_ROOT, DOTNET_ROOT, then what
// `dotnet --list-runtimes` prints.
#pragma once

#include <filesystem>
#include <string>
#include <workstation/failure.h>

namespace quillon {

struct Framework {
  std::filesystem::path directory;  // the folder that holds libcoreclr.so
  std::string version;              // "10.0.12"
  std::string foundThrough;         // "DOTNET_ROOT"
};

// The newest Microsoft.NETCore.App of the first place that holds one. The failure says what was
// wanted, what was found, and where.
[[nodiscard]] Expected<Framework> findFramework();

}  // namespace quillon
