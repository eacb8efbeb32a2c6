// The page that pictures a launch.
#pragma once

#include <string>

#include "quillon/timeline/timeline.h"

namespace quillon::timeline {

// An HTML page that needs nothing beside itself: every span and mark is a row of one inline
// picture, below a scale in milliseconds. With scripts a click on a row shows its time alone.
// `title` and all names may hold any text.
std::string timelinePage(const Timeline& timeline, const std::string& title);

}  // namespace quillon::timeline
