#include "packages/manifest_reader.h"

#include <algorithm>

namespace quillon::workstation {

std::string dotted(std::string_view table, std::string_view key) {
  return table.empty() ? std::string(key) : std::string(table) + '.' + std::string(key);
}

void ManifestReader::mistake(const toml::node& node, std::string_view key, std::string_view what,
                             std::string_view remedy) {
  if (failure_) {
    return;
  }
  // The top-level table has no position in the file.
  const auto line = std::max<toml::source_index>(node.source().begin.line, 1);
  const auto column = std::max<toml::source_index>(node.source().begin.column, 1);
  failure_ = Failure{file_.string() + ':' + std::to_string(line) + ':' + std::to_string(column) +
                         ": key '" + std::string(key) + "' " + std::string(what),
                     std::string(remedy)};
}

std::optional<std::string> ManifestReader::optionalText(const toml::table& table,
                                                        std::string_view name, std::string_view key,
                                                        const Rule& rule, std::string_view remedy) {
  const toml::node* node = table.get(key);
  if (node == nullptr || failure_) {
    return std::nullopt;
  }
  auto value = node->value_exact<std::string>();
  if (!value) {
    mistake(*node, dotted(name, key), "is not a string", remedy);
    return std::nullopt;
  }
  if (const std::string wrong = rule(*value); !wrong.empty()) {
    mistake(*node, dotted(name, key), wrong, remedy);
    return std::nullopt;
  }
  return value;
}

std::string ManifestReader::text(const toml::table& table, std::string_view name,
                                 std::string_view key, const Rule& rule, std::string_view remedy) {
  if (!table.contains(key)) {
    mistake(table, dotted(name, key), "is missing", remedy);
  }
  return optionalText(table, name, key, rule, remedy).value_or("");
}

void ManifestReader::checkKeys(const toml::table& table, std::string_view name,
                               std::initializer_list<std::string_view> known) {
  for (const auto& [key, node] : table) {
    if (std::find(known.begin(), known.end(), key.str()) != known.end()) {
      continue;
    }
    std::string all;
    for (const std::string_view one : known) {
      all += (all.empty() ? "" : ", ") + std::string(one);
    }
    mistake(node, dotted(name, key.str()), "is unknown", "the keys here are " + all);
  }
}

}  // namespace quillon::workstation
