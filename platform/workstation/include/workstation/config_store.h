// The workstation's configuration store, for `quillon config`.
//
// One file for each key below a fixed device directory, replaced atomically; its grammar is in
// docs/configuration-store.md. Any number of processes and threads may use it at once.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <variant>

#include "quillon/base/failure.h"

namespace quillon::workstation {

using ConfigValue = std::variant<int, std::string>;

// The value of a key; empty when the key is absent.
[[nodiscard]] Expected<std::optional<ConfigValue>> getConfig(const std::string& key);

[[nodiscard]] Expected<void> setConfig(const std::string& key, const ConfigValue& value);

// Calls `changed` with the key's value, if it has one, and then after every change, on the calling
// thread, until it returns false. Of changes that follow each other closely some may be left out,
// never the last one.
[[nodiscard]] Expected<void> watchConfig(const std::string& key,
                                         const std::function<bool(const ConfigValue&)>& changed);

}  // namespace quillon::workstation
