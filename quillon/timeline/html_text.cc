#include "quillon/timeline/html_text.h"

#include <array>

namespace quillon::timeline {

std::string escapeHtml(std::string_view text) {
  constexpr std::string_view kSpecial = "&<>\"'";
  constexpr std::array kEntities = {"&amp;", "&lt;", "&gt;", "&quot;", "&#39;"};
  std::string escaped;
  for (const char letter : text) {
    const bool isControl = static_cast<unsigned char>(letter) < 0x20 || letter == 0x7f;
    if (const size_t special = kSpecial.find(letter); special != kSpecial.npos) {
      escaped += kEntities[special];
    } else {
      escaped += isControl ? ' ' : letter;
    }
  }
  return escaped;
}

std::string withoutTrailingZeros(std::string number) {
  if (number.find('.') == std::string::npos) {
    return number;
  }
  while (number.back() == '0') {
    number.pop_back();
  }
  if (number.back() == '.') {
    number.pop_back();
  }
  return number;
}

}  // namespace quillon::timeline
