// The kernel's mount calls, as values: a mount is made detached, given its properties, and only
// then attached, so that a half-made one is never visible.
#pragma once

#include <string>
#include <vector>

#include "quillon/base/descriptor.h"
#include "quillon/base/failure.h"

namespace quillon::device {

// "cannot <step>: <text of error>", with the remedy that fits the error.
[[nodiscard]] tl::unexpected<Failure> stepFailed(const std::string& step, int error);

// The file at `path` as a process sees it whose root is `root`; symbolic links are followed, and
// stay inside. Invalid, with errno set, when there is none.
[[nodiscard]] Descriptor openInside(const Descriptor& root, const std::string& path);

// The folder at `path` beneath `root`, where no component may be a symbolic link.
[[nodiscard]] Descriptor openFolder(const Descriptor& root, const std::string& path);

// A detached copy of what is mounted at `path` and beneath it.
[[nodiscard]] Expected<Descriptor> copyTree(const std::string& path);

// Detached file systems. The overlay shows the files of `upper` over those of `lower` and can be
// written by nobody. `what` names it in a failure.
[[nodiscard]] Expected<Descriptor> newTmpfs(const char* mode);
[[nodiscard]] tl::expected<Descriptor, int> newOverlay(const Descriptor& upper,
                                                       const Descriptor& lower);

enum class Reach { kOne, kWholeTree };
[[nodiscard]] Expected<void> makeReadOnly(const Descriptor& mount, Reach reach,
                                          const std::string& path);

// Places a detached mount on `target`; `path` names the place in a failure.
[[nodiscard]] Expected<void> attach(const Descriptor& mount, const Descriptor& target,
                                    const std::string& path);

struct MountPoint {
  std::string path;
  std::string type;
};

// What is mounted in the calling process's namespace.
[[nodiscard]] std::vector<MountPoint> readMountPoints();

}  // namespace quillon::device
