// Creates partner packages. A package is a request that names one device, and its signature.
#pragma once

#include <filesystem>
#include <string>

#include "quillon/base/failure.h"

namespace quillon::partner {

struct SignOptions {
  std::filesystem::path key;        // private key in PEM
  std::string duid;                 // the device's unique id
  std::string note;                 // additional text of the request; signed, not interpreted
  std::filesystem::path directory;  // to write the two files to; must exist
  bool replace = false;             // replace existing files
};

// Writes both files. On failure, existing files are unchanged, except after a failure or a kill
// between the two renames: then the files do not match, and the plug-in refuses the package.
[[nodiscard]] Expected<void> sign(const SignOptions& options);

}  // namespace quillon::partner
