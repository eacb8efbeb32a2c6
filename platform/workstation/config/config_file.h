// One configuration key's file. The grammar is in docs/configuration-store.md.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "quillon/base/failure.h"
#include "workstation/config_store.h"

namespace quillon::workstation {

// Fails for a text that is no key: one with an empty component, with one that begins with ".", with
// a control character, or too long for a file name.
Expected<void> checkKey(std::string_view key);

// The file of a key, and the part of the key before its last component: "db/menu" of "db/menu/on",
// empty for a key of one component.
std::filesystem::path fileOfKey(std::string_view key);
std::string folderOfKey(std::string_view key);

// The two directions of a file's grammar; nothing where the bytes are not in it.
std::string formatValue(const ConfigValue& value);
std::optional<ConfigValue> parseValue(std::string_view bytes);

// An int for a text that is exactly one in decimal.
std::optional<int> parseDecimal(std::string_view text);

Expected<std::optional<ConfigValue>> readKey(const std::string& key);
Expected<void> writeKey(const std::string& key, const ConfigValue& value);

}  // namespace quillon::workstation
