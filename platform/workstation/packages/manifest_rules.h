// What the values of a manifest have to be. Each function returns what is wrong with a value, or
// an empty text.
#pragma once

#include <string>
#include <string_view>

namespace quillon::workstation {

std::string wrongWithId(std::string_view id);

// A text that ends up in lists and lines: not empty, no control characters.
std::string wrongWithText(std::string_view text);

// Where a package may lie on the device.
std::string wrongWithRoot(const std::string& root);

// An executable: absolute, or relative to the root and not leaving it.
std::string wrongWithExec(const std::string& exec);

}  // namespace quillon::workstation
