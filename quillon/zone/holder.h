// The holder: a process that keeps the namespaces of a zone alive.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

#include "quillon/zone/state_folder.h"
#include "quillon/zone/zones.h"

namespace quillon::zone {

// Forks the holder. Returns its process id when the zone is complete and its state is written; the
// holder then has closed its copy of `states`. After a failure no holder runs, but the caller must
// call StateFolder::forget(), since parts of the state may exist.
[[nodiscard]] Expected<pid_t> startHolder(const std::filesystem::path& device,
                                          const std::string& name,
                                          const std::vector<std::filesystem::path>& visible,
                                          const StateFolder& states);

}  // namespace quillon::zone
