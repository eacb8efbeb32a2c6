// Makes a partner package: a request that names one device, and a signature over it.
#pragma once

#include <filesystem>
#include <string>

#include "quillon/base/failure.h"

namespace quillon::partner {

struct SignOptions {
  std::filesystem::path key;        // private key in PEM
  std::string duid;                 // the device's unique id
  std::string note;                 // what the request says besides; signed, not interpreted
  std::filesystem::path directory;  // where the two files go; must exist
  bool replace = false;             // two files that are there may be replaced
};

// Writes both files or, where a failure is told, leaves those that were there; after a failure
// between the two, or a kill, the pair does not match and is refused.
[[nodiscard]] Expected<void> sign(const SignOptions& options);

}  // namespace quillon::partner
