// Finds a .NET runtime on this machine: QUILLON_DOTNET_ROOT, DOTNET_ROOT, then what
// `dotnet --list-runtimes` prints.
#pragma once

#include <filesystem>
#include <string>

#include "quillon/base/failure.h"

namespace quillon::dotnet {

struct Framework {
  std::filesystem::path directory;  // the folder that holds libcoreclr.so
  std::string version;              // "10.0.12"
  std::string foundThrough;         // "DOTNET_ROOT"
};

// The preferred Microsoft.NETCore.App of the first place that holds one: the newest release, or the
// newest preview where there is no release. QUILLON_DOTNET_ROOT is a person's word: where it is set
// and holds no runtime, no other place is asked. The failure says what was wanted, what was found,
// and where.
[[nodiscard]] Expected<Framework> findFramework();

}  // namespace quillon::dotnet
