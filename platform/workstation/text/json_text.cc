#include "text/json_text.h"

#include <array>
#include <cstdio>

namespace quillon::workstation {
namespace {

bool isContinuation(unsigned char byte) { return (byte & 0xC0) == 0x80; }

// Decodes a UTF-8 sequence.
unsigned codePoint(std::string_view sequence) {
  const auto lead = static_cast<unsigned char>(sequence[0]);
  unsigned value = lead & (0xFFU >> (sequence.size() + 1));
  for (size_t i = 1; i < sequence.size(); ++i) {
    value = (value << 6) | (static_cast<unsigned char>(sequence[i]) & 0x3FU);
  }
  return value;
}

// False for overlong forms, surrogates and values beyond the last plane.
bool isCharacter(unsigned value, size_t length) {
  constexpr std::array<unsigned, 5> kMinValue = {0, 0, 0x80, 0x800, 0x10000};
  return value >= kMinValue[length] && value <= 0x10FFFF && (value < 0xD800 || value > 0xDFFF);
}

// Length of the multi-byte UTF-8 sequence at the start of `text`; 0 if it is invalid.
size_t sequenceLength(std::string_view text) {
  const auto lead = static_cast<unsigned char>(text[0]);
  const size_t length = lead >= 0xF8   ? 0
                        : lead >= 0xF0 ? 4
                        : lead >= 0xE0 ? 3
                        : lead >= 0xC0 ? 2
                                       : 0;
  if (length == 0 || length > text.size()) {
    return 0;
  }
  for (size_t i = 1; i < length; ++i) {
    if (!isContinuation(static_cast<unsigned char>(text[i]))) {
      return 0;
    }
  }
  return isCharacter(codePoint(text.substr(0, length)), length) ? length : 0;
}

void appendAscii(std::string& out, char c) {
  switch (c) {
    case '"':
      out += "\\\"";
      return;
    case '\\':
      out += "\\\\";
      return;
    case '\n':
      out += "\\n";
      return;
    default:
      break;
  }
  if (static_cast<unsigned char>(c) >= 0x20 && c != 0x7F) {
    out += c;
    return;
  }
  std::array<char, 8> escape{};
  std::snprintf(escape.data(), escape.size(), "\\u%04x", static_cast<unsigned>(c));
  out += escape.data();
}

}  // namespace

std::string jsonQuote(std::string_view text) {
  std::string out = "\"";
  out.reserve(text.size() + 2);
  while (!text.empty()) {
    size_t length = 1;
    if (static_cast<unsigned char>(text[0]) < 0x80) {
      appendAscii(out, text[0]);
    } else if (const size_t sequence = sequenceLength(text); sequence != 0) {
      out += text.substr(0, sequence);
      length = sequence;
    } else {
      out += "\\ufffd";
    }
    text.remove_prefix(length);
  }
  out += '"';
  return out;
}

}  // namespace quillon::workstation
