#include "quillon/base/shell_word.h"

#include <string_view>

namespace quillon {
namespace {

constexpr std::string_view kPlain =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-./:,+@%=";

}  // namespace

std::string shellWord(const std::string& text) {
  if (!text.empty() && text.find_first_not_of(kPlain) == text.npos) {
    return text;
  }
  std::string quoted = "'";
  for (const char letter : text) {
    quoted += letter == '\'' ? std::string("'\\''") : std::string(1, letter);
  }
  return quoted + "'";
}

}  // namespace quillon
