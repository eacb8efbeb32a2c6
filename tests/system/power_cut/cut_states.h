// The states that a disk may have after the power was cut.
//
// What a process changed before its last fsync(2) of a file or a folder, or before the last
// sync(2), is on the disk. Of everything else the disk may have made a part:
//
// - Pages of a file are written or not, each by itself, or up to any sector. The size of a file
//   may be written without its pages, which are zeros then.
// - Changes of folders are made in the order of the calls, in their order within each folder, or
//   in any order. A rename is made as a whole.
#pragma once

#include <cstddef>
#include <functional>
#include <string>

#include "tests/system/power_cut/recording.h"

namespace quillon::power_cut {

struct CutState {
  Disk disk;
  std::size_t marks;    // calls of mark() before the cut
  std::string history;  // what was done, and what of it is lost
};

// Calls `check` with up to `count` different states, chosen at random, until it returns false.
// Returns the number of states. Fewer if the recording has fewer.
std::size_t forEachCut(const Recording& recording, std::size_t count, unsigned seed,
                       const std::function<bool(const CutState&)>& check);

}  // namespace quillon::power_cut
