// The rules for values in a manifest. Each function returns what is wrong with a value, or an empty
// text if it is valid.
#pragma once

#include <string>
#include <string_view>

namespace quillon::workstation {

std::string wrongWithId(std::string_view id);

// A text that is written to lists and lines: not empty, no control characters.
std::string wrongWithText(std::string_view text);

// An application type: a text that contains one of the types that the plug-in knows.
std::string wrongWithType(std::string_view type);

// A package's root path on the device.
std::string wrongWithRoot(const std::string& root);

// An executable: an absolute path, or a path relative to the root, without "..". It may not be the
// root or a folder above it.
std::string wrongWithExec(const std::string& exec, const std::string& root);

// The absolute path of an executable.
std::string execPath(const std::string& exec, const std::string& root);

}  // namespace quillon::workstation
