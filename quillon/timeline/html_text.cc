#include "quillon/timeline/html_text.h"

namespace quillon::timeline {

std::string escapeHtml(std::string_view text) {
  std::string escaped;
  for (const char letter : text) {
    switch (letter) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      case '\'':
        escaped += "&#39;";
        break;
      default:
        escaped += static_cast<unsigned char>(letter) < 0x20 || letter == 0x7f ? ' ' : letter;
    }
  }
  return escaped;
}

std::string withoutTrailingZeros(std::string number) {
  if (number.find('.') == std::string::npos) return number;
  while (number.back() == '0') number.pop_back();
  if (number.back() == '.') number.pop_back();
  return number;
}

}  // namespace quillon::timeline
