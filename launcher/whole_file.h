// Reading a file in one go.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace quillon::launcher {

// The bytes of a regular file; nothing where it is none or cannot be read.
std::optional<std::string> readWholeFile(const std::filesystem::path& file);

}  // namespace quillon::launcher
