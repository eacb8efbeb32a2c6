// Gives the process its own mount namespace.
#pragma once

#include "quillon/base/failure.h"
#include "quillon/device/mounts.h"

namespace quillon::device {

// Moves the calling process, which must have one thread, to a private mount namespace: mounts do
// not propagate between it and the machine. An unprivileged process also gets a user namespace, in
// which it keeps its user and group ids: the one of `zoneHolder`, a pidfd, if it may join that one,
// else a new one. The remedy of a failure names the setting to change.
[[nodiscard]] Expected<void> isolateMounts(const Descriptor& zoneHolder);

}  // namespace quillon::device
