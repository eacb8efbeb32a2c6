// Texts and numbers in the timeline's page.
#pragma once

#include <string>
#include <string_view>

namespace quillon::timeline {

// Escapes text for the page's body or an attribute. Replaces control characters by spaces.
std::string escapeHtml(std::string_view text);

// "2.50" becomes "2.5", and "10.00" becomes "10".
std::string withoutTrailingZeros(std::string number);

}  // namespace quillon::timeline
