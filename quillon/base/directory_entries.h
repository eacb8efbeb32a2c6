// Lists the entries of a folder.
#pragma once

#include <string>
#include <vector>

namespace quillon {

// Returns the names of all entries of the open folder, without "." and "..". Returns an empty list
// if `folder` is not an open folder. The call advances the descriptor's offset, so call it once per
// open(2).
std::vector<std::string> directoryEntries(int folder);

}  // namespace quillon
