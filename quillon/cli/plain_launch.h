// The command line of the launches that are made most often, read without the parser of commands.
#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "quillon/host/application/options.h"

namespace quillon::cli {

// The options of "quillon launch ..." where each argument is one of a few, in its plainest spelling
// and there once. Nothing for every other command line, a wrong one, too: launch_command.h says
// what there is, and the parser what is wrong. What is read here it reads alike.
//
// arguments  the program's, its name first
std::optional<host::LaunchOptions> plainLaunch(const std::vector<std::string_view>& arguments);

}  // namespace quillon::cli
