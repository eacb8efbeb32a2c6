// Reads and writes the file of a configuration key. docs/configuration-store.md describes its
// grammar.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "quillon/base/failure.h"
#include "workstation/config_store.h"

namespace quillon::workstation {

// Fails if a text is not a key: if a component is empty, too long for a file name, begins with "."
// or contains a control character.
Expected<void> checkKey(std::string_view key);

// The file of a key, and the part of the key before its last component: "db/menu" for "db/menu/on",
// empty for a key with one component.
std::filesystem::path fileOfKey(std::string_view key);
std::string folderOfKey(std::string_view key);

// Format and parse a file's content. parseValue returns nullopt for malformed content.
std::string formatValue(const ConfigValue& value);
std::optional<ConfigValue> parseValue(std::string_view bytes);

// Parses a decimal int. Returns nullopt for any other text.
std::optional<int> parseDecimal(std::string_view text);

Expected<std::optional<ConfigValue>> readKey(const std::string& key);
// Removes the key's file, and the folders that are empty then. Returns false if there is no file.
Expected<bool> removeKey(const std::string& key);

// The keys below a group, or all keys if it is empty, sorted. Includes keys without a valid value.
// A missing group has no keys.
Expected<std::vector<std::string>> keysBelow(const std::string& group);

// Fails if the key is a group of keys, or if one of its groups is a key.
Expected<void> writeKey(const std::string& key, const ConfigValue& value);

}  // namespace quillon::workstation
