// Lists the entries of a folder.
#pragma once

#include <string>
#include <vector>

namespace quillon {

// Returns the names of all entries of the open folder, without "." and "..", and sets errno to 0.
// If the folder cannot be read, or not to its end, returns the names so far and sets errno. The
// call advances the descriptor's offset, so call it once per open(2).
std::vector<std::string> directoryEntries(int folder);

}  // namespace quillon
