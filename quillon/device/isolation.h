// A mount namespace of the process's own.
#pragma once

#include "quillon/base/failure.h"
#include "quillon/device/mounts.h"

namespace quillon::device {

// Gives the calling process, which must have one thread, a mount namespace in which nothing that it
// mounts reaches the machine, nor the other way round. A process that may not do so by itself gets
// a user namespace too, in which it keeps its own user and group: that of `companion`, a process's
// descriptor, where it may join it, else a new one. The failure names what to enable.
[[nodiscard]] Expected<void> isolateMounts(const Descriptor& companion);

}  // namespace quillon::device
