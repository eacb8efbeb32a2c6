// Package manifests. Their grammar is in docs/package-manifest.md.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "quillon/base/failure.h"
#include "workstation/packages.h"

namespace quillon::workstation {

struct Manifest {
  Package package;
  // The folder to copy to the package's root path; empty: the package has no files.
  std::optional<std::filesystem::path> files;
};

// Reads a manifest and checks all of it. The failure is the first mistake, with file, line, column
// and key.
Expected<Manifest> readManifest(const std::filesystem::path& path);

}  // namespace quillon::workstation
