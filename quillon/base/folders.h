// Opens folders, and replaces files in them, without following symbolic links. If another user
// replaces a folder by a link to a folder that only the caller may use, the caller's work fails
// instead of moving there.
//
// New folders are writable for their owner only, even if the umask allows more.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "quillon/base/descriptor.h"

namespace quillon {

enum class MissingFolder { kFail, kMake, kMakeAndFlush };

// Opens the folder at `path` for reading. A relative path begins at the open folder `start`, which
// may be AT_FDCWD. With kMake, creates missing folders; with kMakeAndFlush they are on the disk
// when the function returns. Returns an invalid descriptor with errno set on failure; errno is
// ENOTDIR if a component is a symbolic link.
[[nodiscard]] Descriptor openFolderWithoutLinks(int start, const std::filesystem::path& path,
                                                MissingFolder missing = MissingFolder::kFail);

// Creates the folder at `path` and the missing folders above it, like
// std::filesystem::create_directories(). Returns true if the folder exists already, false with
// errno set on failure.
[[nodiscard]] bool makeFolders(const std::filesystem::path& path);

// Waits until the entries of the folder at `path` are on the disk: files that were created, renamed
// or removed are so after a power cut too. Returns false with errno set on failure.
[[nodiscard]] bool flushFolder(const std::filesystem::path& path);

// Writes a new file and renames it to `name` in the open folder. A process that opens the file gets
// the old or the new content. Replaces a symbolic link at that name and does not follow it. Returns
// false with errno set on failure; the old file stays then.
[[nodiscard]] bool replaceFile(int folder, const std::string& name, std::string_view content);

}  // namespace quillon
