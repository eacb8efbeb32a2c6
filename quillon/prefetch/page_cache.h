// What the kernel has in the page cache.
#pragma once

#include <sys/uio.h>

#include <cerrno>
#include <cstdint>

namespace quillon::prefetch {

// Whether the page of a file is in the page cache. True if the offset is not inside the file or the
// file system cannot say.
inline bool isCached(int descriptor, std::uint64_t offset) {
  char byte = 0;
  const iovec buffer{&byte, 1};
  return preadv2(descriptor, &buffer, 1, static_cast<off_t>(offset), RWF_NOWAIT) >= 0 ||
         errno != EAGAIN;
}

}  // namespace quillon::prefetch
