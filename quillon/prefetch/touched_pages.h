// The pages of files that a process has mapped and touched.
#pragma once

#include "quillon/prefetch/launch_profile.h"

namespace quillon::prefetch {

// Returns the files that this process has mapped, with the ranges that it has touched, in the
// reverse order of their addresses: the kernel maps files from high to low addresses. Ranges with a
// small gap are one. Pages that the kernel mapped around a touched page count as touched. Examines
// mappings of a few gigabytes in sum, and leaves out those that exceed it.
LaunchProfile touchedPages();

}  // namespace quillon::prefetch
