// Parses the most common launch command lines without the full parser.
#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "quillon/host/application/options.h"

namespace quillon::cli {

// Returns the options of "quillon launch ..." if each argument is an option that
// launch_options_table.h marks with Parser::kBoth, given once, as separate words. Returns nullopt
// for any other command line, valid or not; the full parser then handles it, with the same result.
//
// arguments  of the program, its name first
std::optional<host::LaunchOptions> plainLaunch(const std::vector<std::string_view>& arguments);

}  // namespace quillon::cli
