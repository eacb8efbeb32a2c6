// Opens folders without following symbolic links. If another user replaces a folder by a link to a
// folder that only the caller may use, the caller's work fails instead of moving there.
#pragma once

#include <filesystem>

#include "quillon/base/descriptor.h"

namespace quillon {

enum class MissingFolder { kFail, kMake };

// Opens the folder at `path` for reading. A relative path begins at the open folder `start`, which
// may be AT_FDCWD. With kMake, creates missing folders as mkdir(1) with -p does. Returns an invalid
// descriptor with errno set on failure; errno is ENOTDIR if a component is a symbolic link.
[[nodiscard]] Descriptor openFolderWithoutLinks(int start, const std::filesystem::path& path,
                                                MissingFolder missing = MissingFolder::kFail);

}  // namespace quillon
