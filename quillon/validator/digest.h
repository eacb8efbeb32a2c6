// SHA-256 digests of files.
#pragma once

#include <string>

#include "quillon/base/failure.h"

namespace quillon::validator {

// 64 lower-case hexadecimal digits. Reads regular files only and follows no symbolic link in the
// path's last component.
[[nodiscard]] Expected<std::string> sha256Of(const std::string& file);

}  // namespace quillon::validator
