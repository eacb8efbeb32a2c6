// Wraps the kernel's mount API. A mount is created detached, configured, and then attached, so that
// an incomplete one is never visible.
#pragma once

#include <string>
#include <vector>

#include "quillon/base/descriptor.h"
#include "quillon/base/failure.h"

namespace quillon::device {

// Returns "cannot <step>: <text of error>" with the remedy for the errno value `error`.
[[nodiscard]] tl::unexpected<Failure> stepFailed(const std::string& step, int error);

// Opens the file at `path` as a process with the root directory `root` would: symbolic links cannot
// lead out of it. Returns an invalid descriptor with errno set on failure.
[[nodiscard]] Descriptor openInside(const Descriptor& root, const std::string& path);

// Opens the folder at `path` below `root`. Fails if a component of `path` is a symbolic link.
[[nodiscard]] Descriptor openFolder(const Descriptor& root, const std::string& path);

// Returns a detached copy of the mounts at and below `path`.
[[nodiscard]] Expected<Descriptor> copyTree(const std::string& path);

// Create detached file systems. The overlay shows the files of `upper` over those of `lower` and is
// read-only; its error is an errno value.
[[nodiscard]] Expected<Descriptor> newTmpfs(const char* mode);
[[nodiscard]] tl::expected<Descriptor, int> newOverlay(const Descriptor& upper,
                                                       const Descriptor& lower);

// Whether a call applies to one mount or to all mounts below it, too.
enum class Reach { kOne, kWholeTree };
[[nodiscard]] Expected<void> makeReadOnly(const Descriptor& mount, Reach reach,
                                          const std::string& path);

// Attaches a detached mount to `target`, whose path is `path` in a failure.
[[nodiscard]] Expected<void> attach(const Descriptor& mount, const Descriptor& target,
                                    const std::string& path);

struct MountPoint {
  std::string path;
  std::string type;
};

// Returns the mounts of the calling process's namespace.
[[nodiscard]] std::vector<MountPoint> readMountPoints();

}  // namespace quillon::device
