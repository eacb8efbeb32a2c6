// Reading and writing whole files.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace quillon {

// The file of the running program. Empty if /proc does not tell.
std::filesystem::path executablePath();

// The bytes of a regular file. Returns nullopt if it is not a regular file or cannot be read; never
// waits for the other end of a FIFO.
std::optional<std::string> readWholeFile(const std::filesystem::path& file);

// The bytes of a short file such as those of proc(5), whose size stat(2) does not tell. `file` is
// relative to the open directory `directory` (see openat(2)). Empty if it cannot be read.
std::string readSmallFileAt(int directory, const char* file);

// Writes all of `bytes`, in one write(2) if the kernel takes them at once. A descriptor that stays
// full for a second loses the rest. Returns false with errno on failure.
bool writeAll(int descriptor, std::string_view bytes);

}  // namespace quillon
