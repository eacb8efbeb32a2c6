// Reads values from TOML tables and keeps the first mistake.
#pragma once

#include <toml++/toml.h>

#include <filesystem>
#include <functional>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>

#include "quillon/base/failure.h"

namespace quillon::workstation {

// After the first mistake every read returns an empty value, so a caller can read all values and
// check failure() once.
class ManifestReader {
 public:
  explicit ManifestReader(std::filesystem::path file) : file_(std::move(file)) {}

  // Returns what is wrong with a text; empty if it is valid.
  using Rule = std::function<std::string(const std::string&)>;

  // `name`: the table's name in messages, such as "package". `remedy`: how to correct the value.
  std::string text(const toml::table& table, std::string_view name, std::string_view key,
                   const Rule& rule, std::string_view remedy);
  std::optional<std::string> optionalText(const toml::table& table, std::string_view name,
                                          std::string_view key, const Rule& rule,
                                          std::string_view remedy);

  // Records a mistake if the table has a key that is not in `known`.
  void checkKeys(const toml::table& table, std::string_view name,
                 std::initializer_list<std::string_view> known);

  void mistake(const toml::node& node, std::string_view key, std::string_view what,
               std::string_view remedy);
  [[nodiscard]] const std::optional<Failure>& failure() const { return failure_; }

 private:
  std::filesystem::path file_;
  std::optional<Failure> failure_;
};

// "package.id", or only the key if the table has no name.
std::string dotted(std::string_view table, std::string_view key);

}  // namespace quillon::workstation
