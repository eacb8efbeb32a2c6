// Opens regular files that somebody else has named.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>

#include <string>

#include "quillon/base/descriptor.h"

namespace quillon::prefetch {

// Opens a regular file for reading and sets `status` to the status of the opened file. Returns an
// invalid descriptor if the last component is a symbolic link or any other file. Opening a FIFO or
// a device can have effects, so the type is also read before; if the file is replaced meanwhile,
// O_NONBLOCK keeps the call from waiting.
inline Descriptor openRegularWithoutLinks(const std::string& path, struct stat& status) {
  if (lstat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
    return {};
  }
  Descriptor opened(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!opened || fstat(opened.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
    return {};
  }
  return opened;
}

}  // namespace quillon::prefetch
