// Reads and writes whole files.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "quillon/base/descriptor.h"

namespace quillon {

// Size limits in bytes, see docs/limits.md: of files that people and tools write, such as manifests
// and configuration keys, and of assemblies.
inline constexpr std::size_t kMaxTextSize = std::size_t{1} << 20;
inline constexpr std::size_t kMaxAssemblySize = std::size_t{256} << 20;

// Returns the path of the running program, or an empty path if /proc is not readable.
std::filesystem::path executablePath();

// Returns the path of a library that was built or installed together with `executable`: in "../lib"
// in a build folder, else in the library folder of the installation. The file may be missing.
std::filesystem::path libraryOf(const std::filesystem::path& executable, const char* name);

// The values are those of the moment when the file was opened.
struct RegularFile {
  Descriptor descriptor;
  std::size_t size = 0;
  uid_t owner = 0;
  bool isWritableForOthers = false;  // than the owner, by the file's mode
};

enum class LastLink { kFollow, kRefuse };

// Opens a regular file for reading. Returns an invalid descriptor with errno on failure: EISDIR for
// a folder, EINVAL for any other file that is not regular, EFBIG for more than `limit` bytes, with
// kRefuse ELOOP for a symbolic link. Never waits for the other end of a FIFO.
RegularFile openRegularFile(const std::filesystem::path& file, std::size_t limit,
                            LastLink link = LastLink::kFollow);

// Returns the bytes of the file, at most `size`. Returns nullopt with errno if it cannot be read.
std::optional<std::string> readContent(const RegularFile& file);

// Returns the bytes of a regular file. Returns nullopt with errno if the file cannot be opened (see
// openRegularFile) or read.
std::optional<std::string> readWholeFile(const std::filesystem::path& file, std::size_t limit);

// Opens a regular file for appending, and creates it if it is missing. Returns an invalid
// descriptor with errno on failure, as openRegularFile() does. Never waits for the other end of a
// FIFO.
Descriptor openForAppending(const std::filesystem::path& file);

// Appends identity, size and times of change of a file, relative to the open folder `folder` (see
// fstatat(2)). A missing file has an identity too.
void appendFileIdentity(std::string& fingerprint, int folder, const char* file);

// Takes the exclusive lock of an open file (flock(2)). Waits at most `patience`, since any process
// that can open the file can keep the lock. Returns false with errno on failure; EBUSY if another
// process keeps it.
bool lockFile(int descriptor, std::chrono::milliseconds patience);

// Describes a failure to open, read or append, for example "not a regular file".
//
// error  errno of the failure
std::string fileErrorText(int error, std::size_t limit = 0);

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
