// The process that keeps a zone's namespaces.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

#include "quillon/zone/state_folder.h"
#include "quillon/zone/zones.h"

namespace quillon::zone {

// Forks the holder and returns its id once the zone is complete and its state written; the holder
// then lets go of `states`. On failure there is no holder left, and the state may have to be
// forgotten.
[[nodiscard]] Expected<pid_t> startHolder(const std::filesystem::path& device,
                                          const std::string& name,
                                          const std::vector<std::filesystem::path>& visible,
                                          const StateFolder& states);

}  // namespace quillon::zone
