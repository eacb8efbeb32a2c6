// Computes SHA-256 digests of files.
#pragma once

#include <string>

#include "quillon/base/failure.h"

namespace quillon::validator {

// Returns the digest of a regular file as 64 lower-case hexadecimal digits. Fails if the last
// component of the path is a symbolic link.
[[nodiscard]] Expected<std::string> sha256Of(const std::string& file);

}  // namespace quillon::validator
