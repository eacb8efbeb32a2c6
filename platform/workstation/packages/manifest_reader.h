// Reads values out of TOML tables and keeps the first mistake.
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

// After the first mistake every read returns an empty value, so that a caller reads all and asks
// for the failure once.
class ManifestReader {
 public:
  explicit ManifestReader(std::filesystem::path file) : file_(std::move(file)) {}

  // What is wrong with a text; empty where nothing is.
  using Rule = std::function<std::string(const std::string&)>;

  // `name` is the table's, as messages show it: "package". The remedies say how it is right.
  std::string text(const toml::table& table, std::string_view name, std::string_view key,
                   const Rule& rule, std::string_view remedy);
  std::optional<std::string> optionalText(const toml::table& table, std::string_view name,
                                          std::string_view key, const Rule& rule,
                                          std::string_view remedy);

  // Notes a mistake if a key of the table is none of `known`.
  void checkKeys(const toml::table& table, std::string_view name,
                 std::initializer_list<std::string_view> known);

  void mistake(const toml::node& where, std::string_view key, std::string_view what,
               std::string_view remedy);
  [[nodiscard]] const std::optional<Failure>& failure() const { return failure_; }

 private:
  std::filesystem::path file_;
  std::optional<Failure> failure_;
};

// "package.id"; only the key where the table has no name.
std::string dotted(std::string_view table, std::string_view key);

}  // namespace quillon::workstation
