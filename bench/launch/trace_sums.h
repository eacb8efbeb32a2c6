// What a trace of a launch says of the plug-in's calls.
#pragma once

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace quillon::bench {

// Name and microseconds of each span that the launcher put around a call of the plug-in
// ("plugin_..."), in order; those of one name are added up. Empty where the file holds none.
[[nodiscard]] std::vector<std::pair<std::string, double>> pluginCallsIn(
    const std::filesystem::path& traceFile);

}  // namespace quillon::bench
