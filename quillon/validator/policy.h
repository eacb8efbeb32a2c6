// The policy file of `quillon validator`, docs/dll-validation.md:
//
//   default = "deny"                                  # or "allow"
//   deny-paths = ["/opt/usr/apps/org.example.old"]    # optional
//   allow-sha256 = ["9f86d081...00a08"]               # optional
//   allow-paths = ["/usr/share/dotnet.velora"]        # optional
#pragma once

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "quillon/base/failure.h"

namespace quillon::validator {

struct Policy {
  bool allowsByDefault = false;
  std::vector<std::string> deniedPaths;   // absolute, normalized, without final slash
  std::vector<std::string> allowedPaths;  // the same
  std::set<std::string> allowedDigests;   // SHA-256, lower-case hexadecimal
};

// Reads a policy file. The failure names file, line and key.
[[nodiscard]] Expected<Policy> readPolicy(const std::filesystem::path& file);

}  // namespace quillon::validator
