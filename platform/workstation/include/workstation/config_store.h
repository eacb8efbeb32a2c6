// The workstation's configuration store, for `quillon config`.
//
// Each key is a file below a fixed device directory, which is replaced atomically.
// docs/configuration-store.md describes its grammar. Any number of processes and threads may use
// the store at once.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "quillon/base/failure.h"

namespace quillon::workstation {

using ConfigValue = std::variant<int, std::string>;

// Returns the value of a key; nullopt if the key is not set.
[[nodiscard]] Expected<std::optional<ConfigValue>> getConfig(const std::string& key);

[[nodiscard]] Expected<void> setConfig(const std::string& key, const ConfigValue& value);

// Returns what keeps a key from having a value: keys below it, even if they have been removed, or
// another key in the place of one of its groups. nullopt if it can be set.
[[nodiscard]] std::optional<Failure> obstacleOf(const std::string& key);

// Removes a key. Returns false if it is not set. Does not call those who watch it.
[[nodiscard]] Expected<bool> unsetConfig(const std::string& key);

struct ConfigEntry {
  std::string key;
  ConfigValue value;
};

// Returns the keys below the group `group`, such as "db/menu", or all keys if it is empty, sorted.
[[nodiscard]] Expected<std::vector<ConfigEntry>> listConfig(const std::string& group);

// Starts the thread that calls the functions registered with vconf_notify_key_changed(), unless it
// runs. The first registration starts it too, and reports a failure to do so. A launch calls this
// function while it waits for something else. The thread keeps the credentials, the capabilities
// and the namespaces of the caller.
void startConfigThread();

// Calls `changed` with the key's value, if it is set, and then after every change, on the calling
// thread, until `changed` returns false. Several changes in quick succession may cause only one
// call, which gets the last value.
[[nodiscard]] Expected<void> watchConfig(const std::string& key,
                                         const std::function<bool(const ConfigValue&)>& changed);

}  // namespace quillon::workstation
