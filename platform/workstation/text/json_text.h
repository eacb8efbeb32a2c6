// JSON string literals of any bytes.
#pragma once

#include <string>
#include <string_view>

namespace quillon::workstation {

// `text` as a JSON string, quotes included. Bytes that are no UTF-8 become U+FFFD each, so the
// result is always valid JSON.
std::string jsonQuote(std::string_view text);

}  // namespace quillon::workstation
