// Prints the listings of commands with --json.
#pragma once

#include <nlohmann/json.hpp>

#include <iostream>

namespace quillon::cli {

using Json = nlohmann::ordered_json;

inline constexpr char kJsonFlag[] = "--json";
inline constexpr char kJsonHelp[] = "Print JSON";

// Prints a JSON value and a line break. Replaces invalid UTF-8 instead of throwing.
inline void printJson(const Json& value) {
  constexpr int kIndent = 2;
  std::cout << value.dump(kIndent, ' ', false, Json::error_handler_t::replace) << '\n';
}

}  // namespace quillon::cli
