// Copies and removes whole folders. Another user may rename, replace or add files meanwhile: no
// symbolic link is followed, so the work stays inside the folders that the caller has opened.
#pragma once

#include <filesystem>
#include <string>

#include "quillon/base/failure.h"

namespace quillon::workstation {

// Copies the contents of the open folder `from`, whose path is `path` in failures, to the open
// folder `to`: regular files, folders and symbolic links. Copies have the permissions of the
// originals, without the set-user-id, set-group-id and sticky bits; folders are writable for their
// owner. Of a file that grows meanwhile, copies the first part. When the function returns, the
// copies are on the disk.
Expected<void> copyTree(int from, int to, const std::filesystem::path& path);

// Removes the file or the folder `name`, which may be missing, from the open folder `folder`. Any
// depth of folders is possible. Returns false with errno on failure.
bool removeTree(int folder, const std::string& name);

}  // namespace quillon::workstation
