// JSON string literals from arbitrary bytes.
#pragma once

#include <string>
#include <string_view>

namespace quillon::workstation {

// Returns `text` as a JSON string with quotes. Replaces each byte that is not valid UTF-8 by
// U+FFFD, so that the result is always valid JSON.
std::string jsonQuote(std::string_view text);

}  // namespace quillon::workstation
