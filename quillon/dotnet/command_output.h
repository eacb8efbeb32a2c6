// What a program prints.
#pragma once

#include <tl/expected.hpp>

#include <string>
#include <vector>

namespace quillon::dotnet {

// Runs `words` (a program looked up on PATH, and its arguments; no shell is involved) and returns
// its standard output once it has ended with status 0. The error is a clause that says what
// happened instead: "it cannot be run: No such file or directory", "it ended with status 1".
[[nodiscard]] tl::expected<std::string, std::string> commandOutput(
    const std::vector<std::string>& words);

}  // namespace quillon::dotnet
