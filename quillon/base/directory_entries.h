// What a folder holds.
#pragma once

#include <string>
#include <vector>

namespace quillon {

// The names in an open folder, from its first to its last, without "." and "..". Empty where it is
// none. Call once for each opening.
std::vector<std::string> directoryEntries(int folder);

}  // namespace quillon
