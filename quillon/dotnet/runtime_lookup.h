// Finds a .NET runtime on this machine: in QUILLON_DOTNET_ROOT, in DOTNET_ROOT, then in the output
// of `dotnet --list-runtimes`.
#pragma once

#include <filesystem>
#include <string>

#include "quillon/base/failure.h"

namespace quillon::dotnet {

struct Framework {
  std::filesystem::path directory;  // the folder of libcoreclr.so
  std::string version;              // "10.0.12"
  std::string foundThrough;         // "DOTNET_ROOT"
};

// Returns the preferred Microsoft.NETCore.App of the first place that has one: the newest release,
// or the newest preview if there is no release. If QUILLON_DOTNET_ROOT is set but has no runtime,
// the search fails without looking at other places. The failure lists the places and what was
// found.
[[nodiscard]] Expected<Framework> findFramework();

}  // namespace quillon::dotnet
