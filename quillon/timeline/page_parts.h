// The fixed parts of the timeline's page, and text that may stand in it.
#pragma once

#include <string>
#include <string_view>

namespace quillon::timeline {

// Text for the page's body or an attribute: markup becomes text, control characters spaces.
std::string escaped(std::string_view text);

// "2.50" as "2.5", "10.00" as "10".
std::string withoutZeros(std::string number);

std::string pageStart(const std::string& title);
std::string legend();
std::string pageEnd();

}  // namespace quillon::timeline
