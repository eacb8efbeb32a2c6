// The completion of command lines for shells.
#pragma once

#include <CLI/App.hpp>

#include <functional>
#include <string>
#include <vector>

#include "quillon/cli/description.h"

namespace quillon::cli {

using Words = std::vector<std::string>;

// Returns the values that a placeholder of the help stands for, such as the ids of the installed
// applications for "APPID", in the device root of the command line (empty: there is none). Returns
// nothing for a placeholder that it does not know.
using ValuesOf = std::function<Words(const std::string& placeholder, const std::string& device)>;

// Returns what the last of `words` may become, with a description that may be empty. `words` are
// those of the command line after the program's name; the last one may be empty. Returns nothing if
// the word is a file name or an argument of the application.
std::vector<Row> completions(const CLI::App& app, const Words& words, const ValuesOf& valuesOf);

}  // namespace quillon::cli
