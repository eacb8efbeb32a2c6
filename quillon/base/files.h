// Reads and writes whole files.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace quillon {

// Returns the path of the running program, or an empty path if /proc is not readable.
std::filesystem::path executablePath();

// Returns the path of a library that was built or installed together with `executable`: in "../lib"
// in a build folder, else in the library folder of the installation. The file may be missing.
std::filesystem::path libraryOf(const std::filesystem::path& executable, const char* name);

// Returns the bytes of a regular file. Returns nullopt with errno if the file cannot be opened;
// errno is EINVAL if it is not a regular file. Never waits for the other end of a FIFO.
std::optional<std::string> readWholeFile(const std::filesystem::path& file);

// Returns the bytes of a short file, for example of one below /proc, whose size stat(2) reports as
// 0. `file` is relative to the open directory `directory` (see openat(2)). Returns an empty string
// if the file cannot be read.
std::string readSmallFileAt(int directory, const char* file);

// Reads from `descriptor` to its end, or to the first error other than EINTR.
std::string readAll(int descriptor);

// Writes all of `bytes`, in one write(2) if the kernel accepts them at once. Gives up if the
// descriptor stays full for a second. Returns false with errno on failure.
bool writeAll(int descriptor, std::string_view bytes);

}  // namespace quillon
