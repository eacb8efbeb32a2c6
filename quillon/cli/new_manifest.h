// Manifests for applications that `dotnet publish` or `dotnet build` has written to a folder.
#pragma once

#include <filesystem>
#include <string>

#include "quillon/base/failure.h"
#include "workstation/packages.h"

namespace quillon::cli {

// The manifest in a folder of a build.
inline constexpr char kManifestName[] = "quillon.toml";

// Returns the file name of the folder's application: the assembly with a .runtimeconfig.json beside
// it. Fails if there is none or more than one.
[[nodiscard]] Expected<std::string> findApplicationAssembly(const std::filesystem::path& folder);

// What differs between manifests that are made for a folder.
struct NewPackage {
  std::string assembly;  // file name in the folder
  std::string id;
  std::string version = "1.0.0";
};

// The package of an assembly; its id is the assembly's name.
NewPackage packageOfAssembly(const std::string& assembly);

// Returns a manifest with comments for the application in `folder`.
workstation::ManifestText newManifest(const std::filesystem::path& folder,
                                      const NewPackage& package);

// Returns the manifest that `path` names: a manifest file, that of a folder, or a new one for the
// folder's application.
[[nodiscard]] Expected<workstation::ManifestText> manifestAt(const std::filesystem::path& path);

}  // namespace quillon::cli
