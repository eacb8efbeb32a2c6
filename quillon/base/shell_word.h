// Writes values into the shell commands that remedies name.
#pragma once

#include <string>

namespace quillon {

// Returns `text` as one word of a shell command: as it is, or in quotes if a character of it has a
// meaning in the shell.
std::string shellWord(const std::string& text);

}  // namespace quillon
