// The environment of a worker: the client's, with the changes that the worker's preparation made to
// its own environment applied to it.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace quillon::launchpad {

using Variables = std::map<std::string, std::string>;

// The variables of the calling process.
Variables currentVariables();

// Variables that were set, or removed (no value).
using EnvironmentChanges = std::map<std::string, std::optional<std::string>>;

// The address of each variable's entry, by name. setenv(3) moves a variable that the process was
// started with to a new entry, even if the value stays the same.
using EnvironmentEntries = std::map<std::string, const char*>;

// The entries of the calling process. Valid in its children too.
EnvironmentEntries currentEntries();

// The variables that the calling process has set or removed since `before`.
EnvironmentChanges changesSince(const EnvironmentEntries& before);

// Replaces the environment of the calling process with `entries` ("NAME=VALUE") and applies the
// changes to it. Does not free the environment that the process was started with, since other
// threads may be reading it.
void replaceEnvironment(std::vector<std::string> entries, const EnvironmentChanges& changes);

// The environment that the runtime has copied. It copies each variable at one of several moments,
// and it is not known at which.
class CopiedEnvironment {
 public:
  // A variable to set, or to remove (no value).
  using Change = std::pair<std::string_view, std::optional<std::string_view>>;

  // Call at each moment, while the environment of the calling process is what the runtime copies.
  void record();

  // The changes that make the copy equal to the environment of the calling process. They refer to
  // this object and to that environment.
  [[nodiscard]] std::vector<Change> changes() const;

 private:
  // A variable has no value if the moments differ about it.
  std::map<std::string, std::optional<std::string>, std::less<>> copied_;
  bool isRecorded_ = false;
};

}  // namespace quillon::launchpad
