// The HTML page of a timeline.
#pragma once

#include <string>

#include "quillon/timeline/timeline.h"

namespace quillon::timeline {

// Returns a page that needs no other files. It shows every span and mark as a row of one inline SVG
// picture, below a scale in milliseconds. `title` and all names may be any text.
std::string timelinePage(const Timeline& timeline, const std::string& title);

// Returns the picture alone, as an SVG file that needs no other files.
std::string timelinePicture(const Timeline& timeline);

}  // namespace quillon::timeline
