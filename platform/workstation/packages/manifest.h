// Reads package manifests. docs/package-manifest.md describes their grammar.
#pragma once

#include <filesystem>
#include <optional>

#include "quillon/base/descriptor.h"
#include "quillon/base/failure.h"
#include "workstation/packages.h"

namespace quillon::workstation {

struct Manifest {
  Package package;
  // The folder to copy to the package's root path; nullopt if the package has no files.
  std::optional<std::filesystem::path> files;
  // That folder, opened when the manifest was read, so that nobody can exchange it afterwards.
  Descriptor filesFolder;
};

// Reads and checks a manifest. A failure describes the first mistake with file, line, column and
// key.
Expected<Manifest> readManifest(const ManifestText& manifest);
Expected<Manifest> readManifest(const std::filesystem::path& path);

}  // namespace quillon::workstation
