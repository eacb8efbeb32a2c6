// Removes the escape sequences for colours and text styles from output that does not go to a
// terminal.
#pragma once

#include <string>
#include <string_view>

namespace quillon::cli {

// Filters a text that arrives in parts. A sequence may be divided between two parts.
class ColourFilter {
 public:
  // Returns `part`, after the beginning of a sequence that the previous part ended with, without
  // the sequences ("ESC [ parameters m") that it contains.
  std::string operator()(std::string_view part);

 private:
  std::string pending_;  // the beginning of a sequence
};

}  // namespace quillon::cli
