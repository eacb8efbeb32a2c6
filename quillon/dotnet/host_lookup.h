// Finds .NET's own host on this machine.
#pragma once

#include <filesystem>
#include <optional>

namespace quillon::dotnet {

struct Host {
  std::filesystem::path root;     // the folder of the machine's .NET, which holds "shared"
  std::filesystem::path library;  // the newest libhostfxr.so of it
};

// Returns the host of the .NET that the framework folder `framework` is part of, as in
// "ROOT/shared/Microsoft.NETCore.App/VERSION". Otherwise, or without a folder, the host of the
// framework that findFramework() finds. Returns nullopt if that has none.
[[nodiscard]] std::optional<Host> findHost(const std::optional<std::filesystem::path>& framework);

// The folder ROOT of a framework folder; empty if its path has another form.
[[nodiscard]] std::filesystem::path rootOfFramework(const std::filesystem::path& framework);

}  // namespace quillon::dotnet
