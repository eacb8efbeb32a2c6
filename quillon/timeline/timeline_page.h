// The HTML page of a timeline.
#pragma once

#include <string>

#include "quillon/timeline/timeline.h"

namespace quillon::timeline {

// Returns a page that needs no other files. It shows every span and mark as a row, below a scale in
// milliseconds. `title` and all names may be any text.
std::string timelinePage(const Timeline& timeline, const std::string& title);

}  // namespace quillon::timeline
