// The environment of a prepared process: the asking command's, with what the preparation did to its
// own on top.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace quillon::launchpad {

using Variables = std::map<std::string, std::string>;

// The calling process's.
Variables currentVariables();

// Variables that were set to something else, or removed (no value).
using EnvironmentChanges = std::map<std::string, std::optional<std::string>>;

EnvironmentChanges changesBetween(const Variables& before, const Variables& after);

// Where the environment's entries stood at a moment, by name: a variable that the process was
// started with and sets gets another entry, also where the value is the same.
using EnvironmentEntries = std::map<std::string, const char*>;

// The calling process's. Means the same in its children.
EnvironmentEntries currentEntries();

// What the calling process has set or removed since then.
EnvironmentChanges changesSince(const EnvironmentEntries& before);

// Replaces the calling process's environment with `entries` ("NAME=VALUE") and applies the changes
// to it. The old one stays in memory: threads may be reading it.
void replaceEnvironment(const std::vector<std::string>& entries, const EnvironmentChanges& changes);

}  // namespace quillon::launchpad
